// Sinks: where accepted entries go.
#ifndef RECORDING_SINKS_SINK_H
#define RECORDING_SINKS_SINK_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "base/kp_time.h"
#include "recording/files/dated_name.h"
#include "recording/files/file_error.h"
#include "recording/files/ring_start.h"
#include "recording/files/shared_file.h"
#include "recording/journal/rules.h"
#include "recording/records/entry.h"
#include "recording/sinks/line_form.h"

// One of the places that the command line names. Entries are gathered to a batch in memory, which
// is written by one call or a few, whole lines each.
class record_sink {
 public:
  explicit record_sink(std::unique_ptr<line_form> form) : form_(std::move(form)) {}
  virtual ~record_sink() = default;

  // Gathers the entry's line.
  void add(const sink_entry& entry);
  // Gathers lines that its form, or another of that kind, has made of entries of that day.
  void take(std::string_view lines, const log_day& day);
  const line_form& form() const { return *form_; }

  virtual size_t pending() const = 0;  // bytes gathered
  // Writes what was gathered, to the disk itself when `synced`. Raises file_error: the sink's files
  // are then as they were before the batch, as far as the system lets them, and the batch stays
  // gathered for another try. What went to standard output cannot be taken back; what did not is
  // kept. Of a ring's events it stores, in the ring, that they are delivered. As a part of a joint
  // batch it stays gathered until that is finished.
  virtual void write(bool synced, const delivery* of = nullptr) = 0;
  // Forgets what it remembers of its files. They are opened by their names for every batch anyway.
  virtual void reopen() {}
  // Does a part, of some milliseconds, of what is to be done to files that are done, apart from
  // batches. How long there is nothing more of it; negative: for ever. Tells what fails.
  virtual std::chrono::milliseconds keep_up() { return std::chrono::milliseconds(-1); }
  // Has keep_up() look through all files the next time, whenever it did.
  virtual void hurry_up() {}

 private:
  // The lines that are gathered of that day, to be appended to; then that is told.
  virtual std::string& lines_of(const log_day& day) = 0;
  virtual void count(size_t /*bytes*/) {}

  std::unique_ptr<line_form> form_;
};

struct sink_options {
  std::string set_version;
  std::string code_page;  // of text; empty: UTF-8
  // Told, in one line without its end, of what was cut off behind the last line of a file. Empty:
  // it goes to standard error.
  std::function<void(const std::string& note)> report = {};
  // Told, likewise, why a file that is done cannot be compressed, indexed or removed. Empty: as
  // `report`.
  std::function<void(const std::string& note)> upkeep_report = {};
  lock_waiting waiting = {};
};

// "text:DIR/PREFIX[,max-size=64M]", "journal:DIR/NAME[,OPTIONS]", "json:FILE", "json:-", "-".
// Unfinished lines that a process
// left when it died are cut off at once. Raises std::invalid_argument, with what was found and what
// was expected, for a description that is none of these and for a code page that text cannot be in,
// and file_error where the folder is not there or cannot be written to.
std::unique_ptr<record_sink> make_record_sink(const std::string& description,
                                              const sink_options& options);

// What a sink appends to.
struct sink_path {
  // Of the file; of dated logs and journals "DIR/NAME"; empty: standard output, or no sink.
  std::string path;
  bool has_dated_files = false;
  std::string_view ending = {};  // of the dated files
};

sink_path path_of_sink(const std::string& description);

// The description of a journal: "DIR/NAME", and options behind a comma.
std::string journal_sink_of(const std::string& journal);

// --- The kinds, among which make_record_sink chooses

constexpr uintmax_t default_log_size = journal_rules().max_size;  // bytes of a text log at most

// Lines "TIME LEVEL NAME MESSAGE" in the dated logs of the prefix, which is safe as part of a file
// name.
std::unique_ptr<record_sink> make_text_log_sink(const std::string& folder,
                                                const std::string& prefix, uintmax_t max_size,
                                                const sink_options& options);

// The stored form in the dated segments of the journal (docs/journal.md).
std::unique_ptr<record_sink> make_journal_sink(const std::string& folder, const std::string& name,
                                               const journal_rules& rules,
                                               const sink_options& options);

// The stored form, one entry a line, in a file or on standard output.
std::unique_ptr<record_sink> make_json_file_sink(const std::string& path,
                                                 const sink_options& options);
std::unique_ptr<record_sink> make_json_output_sink(const sink_options& options);

// Messages on standard output, one a line.
std::unique_ptr<record_sink> make_message_sink(const sink_options& options);

#endif
