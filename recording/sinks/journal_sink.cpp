#include <set>
#include <utility>

#include "recording/journal/upkeep.h"
#include "recording/sinks/dated_lines.h"
#include "recording/sinks/sink.h"

class journal_sink : public record_sink {
 public:
  journal_sink(const std::string& folder, const std::string& name, const journal_rules& rules,
               const sink_options& options)
      : record_sink(make_stored_line_form(options.set_version)),
        lines_({folder, name, segment_ending, rules.max_size}, append_rules_of(options)),
        report_(report_or_standard_error(options.upkeep_report ? options.upkeep_report
                                                               : options.report)),
        upkeep_({folder, name, append_rules_of(options)}, rules, report_) {}

  size_t pending() const override { return lines_.pending(); }
  void write(bool synced, const delivery* of) override { lines_.write(synced, of); }
  void reopen() override { lines_.reopen(); }
  std::chrono::milliseconds keep_up() override;
  void hurry_up() override { upkeep_.hurry_up(); }

 private:
  std::string& lines_of(const log_day& day) override { return lines_.lines_of(day); }
  void count(size_t bytes) override { lines_.count(bytes); }
  static append_rules append_rules_of(const sink_options& options) {
    return {
        .line_start = stored_record_start, .report = options.report, .waiting = options.waiting};
  }

  dated_lines lines_;
  file_report report_;
  journal_upkeep upkeep_;
  uint64_t files_seen_ = 0;     // of those that the lines have begun
  std::set<std::string> told_;  // what fails
};

// What fails does so every minute, perhaps, and is told once.
std::chrono::milliseconds journal_sink::keep_up() {
  static constexpr size_t most_told = 100;
  if (std::exchange(files_seen_, lines_.files_begun()) != lines_.files_begun()) upkeep_.hurry();
  try {
    return upkeep_.step();
  } catch (const lock_given_up&) {
    return std::chrono::milliseconds(-1);
  } catch (const file_error& error) {
    if (told_.size() >= most_told) told_.clear();
    if (told_.insert(error.what()).second) report_(error.what());
  }
  return std::chrono::milliseconds(0);
}

std::unique_ptr<record_sink> make_journal_sink(const std::string& folder, const std::string& name,
                                               const journal_rules& rules,
                                               const sink_options& options) {
  return std::make_unique<journal_sink>(folder, name, rules, options);
}
