// Entries for sinks, and what sinks made of them.
#ifndef TESTS_RECORDING_SINKS_SINK_ENTRIES_H
#define TESTS_RECORDING_SINKS_SINK_ENTRIES_H

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "recording/sinks/sink.h"
#include "tests/support/loaded_definitions.h"

// An entry of the event M17, which has an attribute of every type, "A1" to "A24".
class sink_entries {
 public:
  sink_entries() : definitions_(ldf_with_every_type()) {
    event.id = 17;
    event.name = "M17";
    for (int type = 1; type <= 24; ++type)
      event.attributes.push_back({"A" + std::to_string(type), static_cast<kp_AttributeType>(type)});
    made.entry.SetEntryID(17);
    made.entry.SetLogLevel(3);
    made.event = &event;
  }

  void add(record_sink& sink, std::string_view message,
           const char* time = "2026-11-15T17:02:56+08:00") const {
    sink_entry entry{.made = made, .message = message, .time = {}};
    ASSERT_TRUE(entry.time.set_to_string_value(time)) << time;
    sink.add(entry);
  }

 private:
  loaded_definitions definitions_;

 public:
  known_event event;
  made_entry made;
};

// What a line of a text log has before the message.
inline const std::string line_start = "2026-11-15T17:02:56+08:00 3 M17 ";

// The names in a folder, sorted.
inline std::vector<std::string> all_files_in(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& file : std::filesystem::directory_iterator(folder))
    names.push_back(file.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

// The same without those of locks.
inline std::vector<std::string> files_in(const std::string& folder) {
  std::vector<std::string> names = all_files_in(folder);
  std::erase_if(names,
                [](const std::string& name) { return name.find("_lock") != std::string::npos; });
  return names;
}

inline std::vector<std::string> lines_of(const std::string& path) {
  std::istringstream text(read_whole_file(path));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

#endif
