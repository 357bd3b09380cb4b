// How lines of the stored form begin, read without the rest of them (docs/records.md).
#ifndef RECORDING_RECORDS_STORED_START_H
#define RECORDING_RECORDS_STORED_START_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What every line tells first. The name points into the line.
struct stored_start {
  uint32_t event = 0;
  std::string_view name;  // as JSON has it, without its quotes; empty where it is not there
  int64_t instant = 0;    // seconds since 1970-01-01T00:00:00Z
};

// The seconds since 1970 of "2026-11-15T17:02:56+08:00", or with "Z": of a time as stored forms
// tell it. Nothing for any other text.
std::optional<int64_t> instant_of(std::string_view time);
// In GMT, as "2026-11-15T09:02:56Z"; of years that have no four digits the nearest moment, which is
// one of these two.
std::string text_of_instant(int64_t instant);
inline constexpr int64_t first_told_instant = -62'167'219'200;
inline constexpr int64_t last_told_instant = 253'402'300'799;

// Used by one thread at a time.
class stored_start_reader {
 public:
  // Nothing for a line that does not begin as the stored form is written.
  std::optional<stored_start> read(std::string_view line);

 private:
  std::string time_;  // that was read last: many lines have it in common
  int64_t instant_ = 0;
};

#endif
