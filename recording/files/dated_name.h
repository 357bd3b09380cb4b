// Names of dated files: "NAME.YYYYMMDD.NNNN", with an ending that tells what they hold.
#ifndef RECORDING_FILES_DATED_NAME_H
#define RECORDING_FILES_DATED_NAME_H

#include <optional>
#include <string>
#include <string_view>

#include "base/kp_time.h"

struct log_day {
  unsigned short year = 0;
  unsigned short month = 0;
  unsigned short day = 0;

  auto operator<=>(const log_day&) const = default;
};

// As the time tells it.
inline log_day day_of(const kp_Time& time) {
  return {time.get_year(), time.get_month(), time.get_day()};
}

// How the names of a journal's segments end (docs/journal.md); those of text logs have no ending.
inline constexpr std::string_view segment_ending = ".jsonl";
// Behind these: how the name of the file ends that says what is in a segment, and that of a file
// that is being made.
inline constexpr std::string_view index_ending = ".index";
inline constexpr std::string_view unfinished_ending = ".part";

// Four digits: names with more are not recognised. The file of this serial takes all that comes.
inline constexpr unsigned last_dated_serial = 9999;

struct dated_name {
  log_day day;
  unsigned serial = 0;
  std::string ending;  // what is behind the serial: "", ".jsonl", ".gz", "x"
};

// Nothing for a name that does not begin like a dated file of that prefix.
std::optional<dated_name> dated_name_of(std::string_view name, const std::string& prefix);

std::string dated_name_text(const std::string& prefix, const log_day& day, unsigned serial,
                            std::string_view ending);

// Whether a file with this ending says that the one with the ending `of` is not written to any
// more: it is a compressed form, which has a dot and anything behind that. What belongs to a
// segment says so of that alone.
bool is_closed_form(std::string_view ending, std::string_view of);

// Whether it is the name of a text log, or of a segment, that lines are appended to.
bool is_dated_file(std::string_view name, const std::string& prefix);

#endif
