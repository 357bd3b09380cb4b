#include "recording/files/line_file.h"
#include "recording/files/standard_output.h"
#include "recording/records/stored_form.h"
#include "recording/sinks/sink_kinds.h"

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

  void write(bool synced) override { write_standard_output(lines_, synced); }
};

class json_file_sink : public json_sink {
 public:
  json_file_sink(const std::string& folder, const std::string& name, const sink_options& options)
      : json_sink(options),
        file_(folder, name,
              {.line_start = stored_record_start,
               .report = options.report,
               .waiting = options.waiting}) {}

  void write(bool synced) override { file_.append(lines_, synced); }

 private:
  line_file file_;
};

std::unique_ptr<record_sink> make_json_output_sink(const sink_options& options) {
  return std::make_unique<json_output_sink>(options);
}

std::unique_ptr<record_sink> make_json_file_sink(const std::string& folder, const std::string& name,
                                                 const sink_options& options) {
  return std::make_unique<json_file_sink>(folder, name, options);
}
