// From lines to outputs: every record is parsed, made an entry, filtered, rendered, and gathered;
// what was gathered is written in batches, counted, and acknowledged.
#ifndef TOOLS_EMIT_PIPELINE_H
#define TOOLS_EMIT_PIPELINE_H

#include <chrono>
#include <memory>
#include <vector>

#include "recording/files/client_numbers.h"
#include "recording/files/joint_batch.h"
#include "recording/files/shared_file.h"
#include "recording/records/entry.h"
#include "recording/records/input.h"
#include "recording/records/parser.h"
#include "recording/records/stored_form.h"
#include "recording/sinks/counter_writer.h"
#include "recording/sinks/sink.h"
#include "tools/emit/figures.h"
#include "tools/emit/filter.h"
#include "tools/emit/run_report.h"
#include "tools/emit/skew.h"

// Where a run's results go. With clients' numbers a batch is in all of it, and in these, or in
// none: but for standard output, which nothing can be taken back from.
struct emit_outputs {
  std::vector<std::unique_ptr<record_sink>> sinks;
  std::unique_ptr<counter_writer> counts;        // null: nothing is counted
  std::unique_ptr<line_file> quarantine;         // null: bad lines are dropped
  std::vector<file_place> places = {};           // of the locks of all these
  std::unique_ptr<client_numbers> clients = {};  // null: none is acknowledged to
  std::unique_ptr<joint_batch> joint = {};       // with these
  bool acknowledges = false;                     // each batch, on standard output
  bool synced = false;                           // every batch is written to the disk itself
};

// What becomes of a batch that cannot be written.
class batch_patience {
 public:
  virtual ~batch_patience() = default;
  // Whether it is tried again, now. Waits meanwhile.
  virtual bool tries_again(const file_error& error) = 0;
  virtual void was_written() = 0;
};

struct record_rules {
  bool stops = false;  // the first bad record is the last one
  time_skew skew = time_skew(std::nullopt);
};

class emit_pipeline {
 public:
  // All but the rules must live as long as the pipeline.
  emit_pipeline(const event_set& events, const emit_filter& filter, emit_outputs& outputs,
                emit_report& report, batch_patience& patience, record_rules rules);

  // Takes the next record; nothing once it has stopped. Writes the batch when it is large. Raises
  // file_error.
  void take(const record_line& line);
  bool has_stopped() const { return has_stopped_; }
  // Whether records wait for the end of their batch.
  bool has_unwritten() const { return acknowledged_ != taken_; }
  // Ends the batch, with patience. Raises file_error; its records then are not acknowledged, though
  // some of the outputs may have them.
  void write();
  // Opens all files anew at the next batch.
  void reopen();

  // Does a part of what is to be done to files that are done. How long there is nothing more of it;
  // negative: for ever.
  std::chrono::milliseconds keep_up();
  // Has keep_up() look through all of them.
  void hurry_up();

  const emit_tallies& tallies() const { return tallies_; }
  const batch_figures& figures() const { return figures_; }

 private:
  void process(const record_line& line);
  void take_sender(const record_line& line);
  void refuse(const record_line& line, const record_error& error);
  void add(const made_entry& made, std::string_view line);
  bool is_batch_large() const;
  void write_patiently();
  void write_outputs(const delivery* of);
  void write_jointly();
  void tell_clients();
  void count_batch(const std::vector<size_t>& output_bytes, size_t bad_lines);

  const event_set& events_;
  const emit_filter& filter_;
  emit_outputs& outputs_;
  emit_report& report_;
  batch_patience& patience_;
  record_rules rules_;

  record_parser parser_;
  entry_maker maker_;
  stored_form form_;                 // for the size that a record has there
  parsed_record* parsed_ = nullptr;  // the record being processed; null: no JSON object
  emit_tallies tallies_;
  uint64_t taken_ = 0;         // records so far
  uint64_t acknowledged_ = 0;  // of these, up to the last batch written
  size_t batch_input_ = 0;     // bytes of the lines of the batch
  std::string bad_lines_;      // of the batch, for the quarantine
  client_progress progress_;   // by the batch
  bool has_stopped_ = false;
  batch_figures figures_;
  size_t bad_line_count_ = 0;  // of the batch
};

#endif
