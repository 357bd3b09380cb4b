#include "recording/sinks/dated_lines.h"
#include "recording/sinks/sink.h"

class text_log_sink : public record_sink {
 public:
  text_log_sink(const std::string& folder, const std::string& prefix, uintmax_t max_size,
                const sink_options& options)
      : record_sink(make_text_log_form(options.code_page)),
        lines_({folder, prefix, "", max_size},
               {.report = options.report, .waiting = options.waiting}) {}

  size_t pending() const override { return lines_.pending(); }
  void write(bool synced, const delivery* of) override { lines_.write(synced, of); }
  void reopen() override { lines_.reopen(); }

 private:
  std::string& lines_of(const log_day& day) override { return lines_.lines_of(day); }
  void count(size_t bytes) override { lines_.count(bytes); }

  dated_lines lines_;
};

std::unique_ptr<record_sink> make_text_log_sink(const std::string& folder,
                                                const std::string& prefix, uintmax_t max_size,
                                                const sink_options& options) {
  return std::make_unique<text_log_sink>(folder, prefix, max_size, options);
}
