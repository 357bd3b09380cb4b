// A folder with definitions, in which kplog emit is run.
#ifndef TESTS_COMMAND_EMIT_FIXTURE_H
#define TESTS_COMMAND_EMIT_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/command/command_run.h"
#include "tests/command/running_command.h"
#include "tests/support/temp_folder.h"

constexpr const char* emit_definitions = R"(kplog: 1
log_version: "2.0"
flags: {NETWORK: 0x1, AUDIT: 0x2}
events:
  USER_LOGIN:
    id: 1001
    flags: [AUDIT]
    attributes: {USER_NAME: MBChar64, PORT: UInt2}
    message: "{USER_NAME} logged in on port {PORT}"
  LINK_DOWN:
    id: 1002
    flags: [NETWORK]
    attributes: {LINK: Char32}
    message: "the link {LINK} is down"
  NOTE:
    id: 1003
    attributes: {TEXT: MBChar2K}
    message: "{TEXT}"
  BROKEN:
    id: 1004
    message: {raw: "%D%TIMESTAMP%"}
)";

// Time is told as in Singapore, whatever the machine thinks. The message of BROKEN names no
// attribute in the compiled file, as only another writer of such files leaves it.
class emit_folder {
 public:
  emit_folder() {
    folder_.write("events.yaml", emit_definitions);
    const auto run = run_kplog(folder_.path(), "compile -q events.yaml -o events.ldf");
    EXPECT_EQ(run.status, 0) << run.err;
    const std::string sound = "%D%TIMESTAMP%";
    std::string compiled = text("events.ldf");
    folder_.write("events.ldf",
                  compiled.replace(compiled.find(sound), sound.size(), "%s   %NOBODY%"));
  }

  command_result emit(const std::string& arguments, const std::string& before = "") const {
    return run_kplog(folder_.path(), "emit --definitions events.ldf --locale en_US " + arguments,
                     "export TZ=Asia/Singapore && " + before);
  }

  // The same, of records on standard input.
  command_result emit_text(const std::string& arguments, const std::string& records) const {
    folder_.write("input", records);
    return emit(arguments + " < input");
  }

  static std::vector<std::string> words(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {"emit", "--definitions", "events.ldf", "--locale", "en_US"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }

  std::string text(const std::string& name) const { return read_whole_file(folder_.file(name)); }
  std::string path(const std::string& name) const { return folder_.file(name); }
  std::string path() const { return folder_.path(); }
  std::string write(const std::string& name, const std::string& content) const {
    return folder_.write(name, content);
  }

 private:
  environment_value zone_{"TZ", "Asia/Singapore"};
  temp_folder folder_;
};

inline std::string login_record(const std::string& user, int port,
                                const std::string& time = "2026-11-15T17:02:56+08:00") {
  return R"({"event":"USER_LOGIN","time":")" + time + R"(","attributes":{"USER_NAME":")" + user +
         R"(","PORT":)" + std::to_string(port) + "}}\n";
}

inline std::string note_record(const std::string& text,
                               const std::string& time = "2026-11-15T17:02:56+08:00") {
  return R"({"event":"NOTE","time":")" + time + R"(","attributes":{"TEXT":")" + text + "\"}}\n";
}

// Notes of the levels 1, 5 and 9.
inline std::string three_levels() {
  std::string records;
  for (const char* level : {"1", "5", "9"})
    records += std::string(R"({"event":"NOTE","level":)") + level +
               R"(,"attributes":{"TEXT":"level )" + level + "\"}}\n";
  return records;
}

// Three, and a good one before and behind them.
inline const std::string bad_records = note_record("a") +
                                       "{\"event\":\"NOBODY\"}\n"
                                       "{\"event\":\"NOTE\",\"attributes\":{\"TEXT\":7}}\n"
                                       "not even JSON\n" +
                                       note_record("b");

// Arguments that are refused, and a part of what is said of them.
struct usage_case {
  const char* arguments;
  const char* text;
};

#endif
