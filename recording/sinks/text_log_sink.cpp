#include "recording/records/time_text.h"
#include "recording/sinks/dated_lines.h"
#include "recording/sinks/sink.h"
#include "recording/text/code_page.h"
#include "recording/text/escape.h"

class text_log_sink : public record_sink {
 public:
  text_log_sink(const std::string& folder, const std::string& prefix, uintmax_t max_size,
                const sink_options& options)
      : code_page_(options.code_page),
        lines_({folder, prefix, "", max_size},
               {.report = options.report, .waiting = options.waiting}) {}

  void add(const sink_entry& entry) override;
  size_t pending() const override { return lines_.pending(); }
  void write(bool synced, const delivery* of) override { lines_.write(synced, of); }
  void reopen() override { lines_.reopen(); }

 private:
  log_code_page code_page_;
  record_time_text time_text_;
  line_writer line_;  // reused
  dated_lines lines_;
};

void text_log_sink::add(const sink_entry& entry) {
  const kp_LOG_LogEntry& made = entry.made.entry;
  line_.clear();
  line_.append(time_text_.of(entry.time));
  line_.append(' ');
  line_.append(static_cast<char>('0' + made.GetLogLevel()));
  line_.append(' ');
  if (entry.made.event != nullptr && !entry.made.event->name.empty())
    append_log_text(line_, entry.made.event->name);
  else
    line_.append_number(made.GetEntryID());
  line_.append(' ');
  append_log_text(line_, entry.message);

  std::string& lines = lines_.lines_of(entry.time);
  const size_t before = lines.size();
  code_page_.append(lines, line_.text());
  lines += '\n';
  lines_.count(lines.size() - before);
}

std::unique_ptr<record_sink> make_text_log_sink(const std::string& folder,
                                                const std::string& prefix, uintmax_t max_size,
                                                const sink_options& options) {
  return std::make_unique<text_log_sink>(folder, prefix, max_size, options);
}
