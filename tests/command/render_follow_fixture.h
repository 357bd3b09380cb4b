// kplog render --follow in a folder with definitions.
#ifndef TESTS_COMMAND_RENDER_FOLLOW_FIXTURE_H
#define TESTS_COMMAND_RENDER_FOLLOW_FIXTURE_H

#include <algorithm>
#include <csignal>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "tests/command/emit_fixture.h"

class RenderFollow : public testing::Test {
 protected:
  static std::vector<std::string> words(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {"render",   "--definitions", "events.ldf",
                                    "--locale", "en_US",         "--follow"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }
  std::unique_ptr<running_command> follow(const std::vector<std::string>& arguments,
                                          const std::string& before = "") const {
    return std::make_unique<running_command>(folder_.path(), words(arguments), command_err::pipe,
                                             before);
  }
  void append(const std::string& name, const std::string& text) const {
    std::ofstream(folder_.path(name), std::ios::app) << text;
  }
  void emit(const std::string& options, const std::string& records) const {
    const command_result run = folder_.emit_text("-q " + options, records);
    EXPECT_EQ(run.status, 0) << run.err;
  }
  static std::vector<std::string> lines_of(running_command& run, size_t count) {
    std::vector<std::string> lines;
    for (size_t i = 0; i < count; ++i) lines.push_back(run.out_line());
    return lines;
  }
  static command_end ended(running_command& run, int signal = SIGTERM) {
    run.signal(signal);
    return run.wait_for_end();
  }
  static std::string notes(const std::string& prefix, size_t count,
                           const std::string& time = "2026-11-15T17:02:56+08:00") {
    std::string records;
    for (size_t i = 0; i < count; ++i) records += note_record(prefix + std::to_string(i), time);
    return records;
  }
  static std::vector<std::string> texts(const std::string& prefix, size_t count) {
    std::vector<std::string> lines;
    for (size_t i = 0; i < count; ++i) lines.push_back(prefix + std::to_string(i));
    return lines;
  }
  static std::vector<std::string> sorted(std::vector<std::string> lines) {
    std::sort(lines.begin(), lines.end());
    return lines;
  }

  emit_folder folder_;
};

#endif
