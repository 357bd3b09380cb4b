#include "recording/files/shared_file.h"
#include "recording/records/stored_form.h"
#include "recording/sinks/sink.h"
#include "recording/text/code_page.h"
#include "recording/text/escape.h"

// --- The stored form ---

// Gathers lines of the stored form.
class json_sink : public record_sink {
 public:
  explicit json_sink(const sink_options& options) : form_(options.set_version) {}

  void add(const sink_entry& entry) override {
    form_.append(lines_, entry);
    lines_ += '\n';
  }
  size_t pending() const override { return lines_.size(); }

 protected:
  std::string lines_;

 private:
  stored_form form_;
};

class json_output_sink : public json_sink {
 public:
  using json_sink::json_sink;

  void write(bool synced, const delivery* of) override {
    write_standard_output(lines_, synced);
    store_delivery(of, synced);
  }
};

class json_file_sink : public json_sink {
 public:
  json_file_sink(const std::string& path, const sink_options& options)
      : json_sink(options),
        file_(path, {.line_start = stored_record_start,
                     .report = options.report,
                     .waiting = options.waiting}) {}

  void write(bool synced, const delivery* of) override { file_.append(lines_, synced, of); }

 private:
  line_file file_;
};

std::unique_ptr<record_sink> make_json_output_sink(const sink_options& options) {
  return std::make_unique<json_output_sink>(options);
}

std::unique_ptr<record_sink> make_json_file_sink(const std::string& path,
                                                 const sink_options& options) {
  return std::make_unique<json_file_sink>(path, options);
}

// --- Messages ---

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
  void write(bool synced, const delivery* of) override {
    write_standard_output(lines_, synced);
    store_delivery(of, synced);
  }

 private:
  log_code_page code_page_;
  std::string line_;  // reused
  std::string lines_;
};

std::unique_ptr<record_sink> make_message_sink(const sink_options& options) {
  return std::make_unique<message_sink>(options);
}
