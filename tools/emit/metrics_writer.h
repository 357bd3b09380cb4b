// Metrics in the text format that Prometheus reads.
#ifndef TOOLS_EMIT_METRICS_WRITER_H
#define TOOLS_EMIT_METRICS_WRITER_H

#include <chrono>
#include <string>

// Writes metrics of one run, each line with the run's name as a label.
class metrics_writer {
 public:
  explicit metrics_writer(const std::string& run) : run_("run=\"" + label_text(run) + "\"") {}

  void family(const char* name, const char* type, const char* help) {
    name_ = name;
    text_ += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
  }
  template <class Number>
  metrics_writer& line(Number number, const std::string& more_labels = "") {
    text_ += name_ + "{" + run_ + (more_labels.empty() ? "" : "," + more_labels) + "} ";
    text_ += std::to_string(number) + "\n";
    return *this;
  }
  void seconds(std::chrono::system_clock::time_point time) {
    line(std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count());
  }
  const std::string& text() const { return text_; }

  static std::string label_text(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
      if (c == '\\' || c == '"') escaped += '\\';
      escaped += c == '\n' ? "\\n" : std::string(1, c);
    }
    return escaped;
  }
  static std::string label(const char* name, const std::string& value) {
    return std::string(name) + "=\"" + label_text(value) + "\"";
  }

 private:
  std::string run_;
  std::string name_;  // of the family
  std::string text_;
};

#endif
