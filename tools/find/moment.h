// Moments as people tell them in options.
#ifndef TOOLS_FIND_MOMENT_H
#define TOOLS_FIND_MOMENT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

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

// Seconds since 1970-01-01T00:00:00Z; of years that are far away the nearest moment.
int64_t seconds_of(const kp_Time& moment);

// Times of a day, told with one zone, by their hours, minutes and seconds alone: those of records
// are most often of the day of the record before.
class known_day {
 public:
  // The seconds of a time that is told like the one that was learnt; nothing for any other text.
  std::optional<int64_t> seconds_of(std::string_view time) const;
  // A time, and which moment that is.
  void learn(std::string_view time, const kp_Time& moment);

 private:
  std::string date_;  // "2026-11-15T"; empty: none
  std::string zone_;  // "+08:00"
  int64_t begin_ = 0;
};

// The moment that a record tells as its time; nothing for a text that is no time.
std::optional<kp_Time> moment_of(const record_value& time);

#endif
