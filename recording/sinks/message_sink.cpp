#include "recording/files/standard_output.h"
#include "recording/records/log_line.h"
#include "recording/sinks/sink_kinds.h"
#include "recording/text/escape.h"

class message_sink : public record_sink {
 public:
  explicit message_sink(const sink_options& options) : code_page_(options.code_page) {}

  void add(const sink_entry& entry) override {
    line_.clear();
    append_log_text(line_, entry.message);
    code_page_.append(lines_, line_);
    lines_ += '\n';
  }
  size_t pending() const override { return lines_.size(); }
  void write(bool synced) override { write_standard_output(lines_, synced); }

 private:
  log_code_page code_page_;
  std::string line_;  // reused
  std::string lines_;
};

std::unique_ptr<record_sink> make_message_sink(const sink_options& options) {
  return std::make_unique<message_sink>(options);
}
