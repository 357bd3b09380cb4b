#include "recording/records/stored_form.h"
#include "recording/sinks/dated_lines.h"
#include "recording/sinks/sink.h"

class journal_sink : public record_sink {
 public:
  journal_sink(const std::string& folder, const std::string& name, const journal_rules& rules,
               const sink_options& options)
      : form_(options.set_version),
        lines_({folder, name, segment_ending, rules.max_size}, {.line_start = stored_record_start,
                                                                .report = options.report,
                                                                .waiting = options.waiting}) {}

  void add(const sink_entry& entry) override {
    std::string& lines = lines_.lines_of(entry.time);
    const size_t before = lines.size();
    form_.append(lines, entry);
    lines += '\n';
    lines_.count(lines.size() - before);
  }
  size_t pending() const override { return lines_.pending(); }
  void write(bool synced, const delivery* of) override { lines_.write(synced, of); }
  void reopen() override { lines_.reopen(); }

 private:
  stored_form form_;
  dated_lines lines_;
};

std::unique_ptr<record_sink> make_journal_sink(const std::string& folder, const std::string& name,
                                               const journal_rules& rules,
                                               const sink_options& options) {
  return std::make_unique<journal_sink>(folder, name, rules, options);
}
