// Moments as people tell them in options.
#ifndef TOOLS_FIND_MOMENT_H
#define TOOLS_FIND_MOMENT_H

#include <chrono>
#include <optional>
#include <string>

#include "base/kp_time.h"
#include "recording/records/parser.h"

inline constexpr char moment_form[] =
    "a time such as 2026-11-15T17:02:56+08:00, a date, \"today\", \"yesterday\", \"now\" or \"2 "
    "hours ago\"";

// What a day is taken for: its first second or its last.
enum class moment_edge { first, last };

// The moment that the text tells: a time as records have it, with or without a zone; a day, also
// "today" and "yesterday", in the zone of this machine; "now"; or how long before `now`, in
// seconds, minutes, hours, days (of 24 hours) or weeks. Raises std::invalid_argument, which says
// what is expected, for any other text.
kp_Time moment_of(const std::string& text, moment_edge edge,
                  std::chrono::system_clock::time_point now);

// The moment that a record tells as its time; nothing for a text that is no time.
std::optional<kp_Time> moment_of(const record_value& time);

#endif
