// What became of records, and what a run that reads them says while it runs and when it ends.
#ifndef TOOLS_EMIT_RUN_REPORT_H
#define TOOLS_EMIT_RUN_REPORT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "recording/records/event_set.h"
#include "recording/records/input.h"
#include "recording/records/parser.h"
#include "tools/report/outcome.h"

// Every record is one of these, or waits to be written.
struct emit_tally {
  uint64_t read = 0;
  uint64_t written = 0;   // to every output
  uint64_t rejected = 0;  // by the filter
  uint64_t bad = 0;       // refused

  uint64_t unwritten() const { return read - written - rejected - bad; }
};

// By event; null stands for events that are not known.
using emit_tallies = std::unordered_map<const known_event*, emit_tally>;

emit_tally total_of(const emit_tallies& tallies);
// By ID; what is not known comes last.
std::vector<const emit_tallies::value_type*> rows_by_id(const emit_tallies& tallies);

class emit_report {
 public:
  // `has_output`: the run writes to standard output, among which no progress is drawn.
  emit_report(std::ostream& log, const report_options& options, bool has_output);

  // A diagnostic with the line and a caret. In each minute the first 100 are shown, and the others
  // counted.
  void bad_record(const record_line& line, const record_error& error);
  // "kplog: TEXT", or as JSON.
  void problem(diagnostic_rule rule, const std::string& text);
  // Once for each event: its message is the definition's own text, for want of one in the catalog.
  void definition_message(const known_event& event);
  // The outcome of `run`; or, where it raises what ends a command, that outcome, told here: damaged
  // definitions, std::invalid_argument (a usage error), file_error and other std::runtime_errors (a
  // file error). Every other exception passes.
  command_outcome report_failures(const std::function<command_outcome()>& run);
  // Of the bad lines of a batch that many were not kept: told when they are the first, and when
  // there is room again.
  void quarantined(size_t left_out);
  // So many bad records more, of which nothing but that is to be told.
  void not_shown(uint64_t bad) { hidden_ += bad; }
  // Redraws the line of progress, if there is one to draw and it is time.
  void progress(const emit_tallies& tallies);
  // Tells how many bad records were not shown, if any.
  void tell_hidden();
  // "kplog: TEXT", where a summary is wanted.
  void note(const std::string& text);
  // Ends the progress. What was not shown, and unless the run is to be quiet the totals and a table
  // of events, which are not flushed: the end of the log waits for those who read it.
  void closing(const emit_tallies& tallies);

 private:
  using clock = std::chrono::steady_clock;

  void tell(char priority, const std::string& lines);
  void tell(char priority, const diagnostic_list& found, const text_file& file);
  bool may_show_another();
  void tell_not_kept();
  void clear_progress();
  static std::string table(const emit_tallies& tallies);
  static std::string json(const emit_tallies& tallies);

  std::ostream& log_;
  const report_options& options_;
  bool draws_progress_;
  bool is_for_journal_;  // which is told of each line how grave it is
  bool is_progress_shown_ = false;
  clock::time_point began_ = clock::now();
  clock::time_point drawn_ = began_;             // the progress
  clock::time_point minute_ = began_;            // in which bad records are counted
  unsigned shown_ = 0;                           // bad records in that minute
  std::unordered_set<const known_event*> told_;  // that the catalog lacks a message of them
  uint64_t hidden_ = 0;    // bad records that were not shown, and not told of yet
  uint64_t not_kept_ = 0;  // bad lines likewise
  bool is_quarantine_full_ = false;
};

#endif
