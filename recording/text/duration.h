// Spans of time as people write them in options.
#ifndef RECORDING_TEXT_DURATION_H
#define RECORDING_TEXT_DURATION_H

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

inline constexpr char duration_form[] =
    "a duration is a number from 1 with d, h, m or s behind it, and at most 36500d";

// "90d", "12h", "5m", "30s": a whole number from 1 and its unit; nothing for any other text, and
// for what is longer than 36500 days, which any clock can be set forth or back by.
std::optional<std::chrono::seconds> duration_of(std::string_view text);

// The same in the largest unit in which it is a whole number: "1d", not "24h".
std::string duration_text(std::chrono::seconds duration);

#endif
