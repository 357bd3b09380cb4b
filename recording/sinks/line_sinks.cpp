#include "recording/files/shared_file.h"
#include "recording/sinks/sink.h"

// Gathers lines, whatever their day.
class undated_sink : public record_sink {
 public:
  using record_sink::record_sink;

  size_t pending() const override { return lines_.size(); }

 protected:
  std::string lines_;

 private:
  std::string& lines_of(const log_day&) override { return lines_; }
};

class output_sink : public undated_sink {
 public:
  using undated_sink::undated_sink;

  void write(bool synced, const delivery* of) override {
    write_standard_output(lines_, synced);
    store_delivery(of, synced);
  }
};

class json_file_sink : public undated_sink {
 public:
  json_file_sink(const std::string& path, const sink_options& options)
      : undated_sink(make_stored_line_form(options.set_version)),
        file_(path, {.line_start = stored_record_start,
                     .report = options.report,
                     .waiting = options.waiting}) {}

  void write(bool synced, const delivery* of) override { file_.append(lines_, synced, of); }

 private:
  line_file file_;
};

std::unique_ptr<record_sink> make_json_output_sink(const sink_options& options) {
  return std::make_unique<output_sink>(make_stored_line_form(options.set_version));
}

std::unique_ptr<record_sink> make_json_file_sink(const std::string& path,
                                                 const sink_options& options) {
  return std::make_unique<json_file_sink>(path, options);
}

std::unique_ptr<record_sink> make_message_sink(const sink_options& options) {
  return std::make_unique<output_sink>(make_message_form(options.code_page));
}
