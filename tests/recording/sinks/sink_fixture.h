// A sink in a folder of its own.
#ifndef TESTS_RECORDING_SINKS_SINK_FIXTURE_H
#define TESTS_RECORDING_SINKS_SINK_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/recording/sinks/sink_entries.h"
#include "tests/support/raised_by.h"
#include "tests/support/temp_folder.h"
#include "tools/report/outcome.h"

class RecordSink : public testing::Test {
 protected:
  std::unique_ptr<record_sink> make(const std::string& description) {
    sink_options options = options_;
    options.report = [this](const std::string& note) { notes_.push_back(note); };
    options.waiting.report = options.report;
    return make_record_sink(description, options);
  }
  std::unique_ptr<record_sink> text(const std::string& options = "") {
    return make("text:" + file("app") + options);
  }
  void write(record_sink& sink, const std::vector<std::string>& messages) {
    for (const std::string& message : messages) entries_.add(sink, message);
    sink.write(false);
  }
  std::string write_error(record_sink& sink) {
    return raised_by<file_error>([&] { sink.write(false); });
  }
  std::string file(const std::string& name) const { return folder_.file(name); }
  std::string content(const std::string& name) const { return read_whole_file(file(name)); }
  std::vector<std::string> files() const { return files_in(folder_.path()); }

  temp_folder folder_;
  sink_entries entries_;
  sink_options options_{.set_version = "2.0", .code_page = ""};
  std::vector<std::string> notes_;
};

// A text log's line of that message, at the time that entries have by default.
inline std::string line(const std::string& message) {
  return line_start + message + "\n";
}

#endif
