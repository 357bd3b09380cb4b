// From lines to outputs: of every record an entry is made, by several threads where there is much
// to be read; what they become is gathered, written in batches, counted, and acknowledged.
#ifndef TOOLS_EMIT_PIPELINE_H
#define TOOLS_EMIT_PIPELINE_H

#include <chrono>
#include <memory>
#include <vector>

#include "recording/files/client_numbers.h"
#include "recording/files/joint_batch.h"
#include "recording/files/shared_file.h"
#include "recording/records/input.h"
#include "recording/sinks/counter_writer.h"
#include "recording/sinks/sink.h"
#include "tools/emit/entry_makers.h"
#include "tools/emit/figures.h"
#include "tools/emit/filter.h"
#include "tools/emit/line_pack.h"
#include "tools/emit/record_making.h"
#include "tools/emit/run_report.h"

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

class emit_pipeline {
 public:
  // All but the rules must live as long as the pipeline, which is used within the definitions'
  // scope.
  emit_pipeline(definition_version& definitions, const emit_filter& filter, emit_outputs& outputs,
                emit_report& report, batch_patience& patience, record_rules rules, size_t threads);

  // Takes the next record; nothing once it has stopped. Writes the batch when it is large. Where
  // much has come since the last write, the record waits in a pack for one of so many threads.
  // Raises file_error.
  void take(const record_line& line);
  bool has_stopped() const { return has_stopped_; }
  // Whether records wait for the end of their batch.
  bool has_unwritten() const { return acknowledged_ != taken_; }
  // Whether some of them have waited so long that they are written though more is coming in.
  bool is_write_due() const { return has_unwritten() && clock::now() >= write_due_; }
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
  void take_alone(const record_line& line);
  void add(const sink_entry& entry);
  void refuse(const record_line& line, const known_event* event, const record_error& error);

  bool is_busy();
  void take_in_pack(const record_line& line);
  std::unique_ptr<line_pack> empty_pack();
  void take_packs();
  std::unique_ptr<pack_maker> new_maker() const;
  void merge(std::unique_ptr<line_pack> pack);
  void take_one_by_one(const line_pack& pack);
  void merge_made(const line_pack& pack);
  void merge_lines(const pack_result& made);
  void merge_refused(const line_pack& pack);
  record_error fault_of(const record_line& line, const pack_result::refused_line& refused);

  using clock = std::chrono::steady_clock;

  bool has_batch() const { return acknowledged_ != done_; }
  bool is_batch_large() const;
  void write_batch();
  void write_patiently();
  void write_outputs(const delivery* of);
  void write_jointly();
  void tell_clients();
  void count_batch(const std::vector<size_t>& output_bytes, size_t bad_lines);

  definition_version& definitions_;
  const emit_filter& filter_;
  emit_outputs& outputs_;
  emit_report& report_;
  batch_patience& patience_;
  record_rules rules_;

  record_making making_;
  size_t threads_;
  size_t taken_since_write_ = 0;          // bytes of lines
  std::unique_ptr<entry_makers> makers_;  // null: nothing has asked for them yet
  std::unique_ptr<line_pack> pack_;       // that is being filled; null: none
  std::vector<std::unique_ptr<line_pack>> spare_packs_;

  emit_tallies tallies_;
  uint64_t taken_ = 0;         // records so far
  uint64_t done_ = 0;          // of these: they are in the batch, or were refused, or rejected
  uint64_t acknowledged_ = 0;  // of these, up to the last batch written
  clock::time_point write_due_ = {};  // of those that are not written
  size_t batch_input_ = 0;            // bytes of the lines of the batch
  std::string bad_lines_;             // of the batch, for the quarantine
  client_progress progress_;          // by the batch
  bool has_stopped_ = false;
  batch_figures figures_;
  size_t bad_line_count_ = 0;  // of the batch
};

#endif
