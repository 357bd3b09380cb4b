// Sources for comparisons.
#ifndef TESTS_COMMAND_DIFF_SOURCE_H
#define TESTS_COMMAND_DIFF_SOURCE_H

#include <string>

// A source with these events.
inline std::string source_of(const std::string& events, const std::string& head = "") {
  return "kplog: 1\nlog_version: \"1\"\n" + head + "events:\n" + events;
}

#endif
