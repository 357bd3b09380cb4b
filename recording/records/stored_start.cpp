#include "recording/records/stored_start.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

#include "recording/records/parser.h"
#include "recording/text/number.h"

// --- Times ---

// The number of `size` digits at that place; nothing where they are none.
static std::optional<int> digits_at(std::string_view text, size_t at, size_t size) {
  const std::string_view digits = text.substr(at, size);
  const bool are_digits =
      std::ranges::all_of(digits, [](char digit) { return digit >= '0' && digit <= '9'; });
  return are_digits ? number_of<int>(digits) : std::nullopt;
}

// Seconds east of Greenwich.
static std::optional<int> offset_of_zone(std::string_view zone) {
  if (zone == "Z") return 0;
  const bool is_offset = zone.size() == 6 && (zone[0] == '+' || zone[0] == '-') && zone[3] == ':';
  if (!is_offset) return std::nullopt;
  const auto hours = digits_at(zone, 1, 2);
  const auto minutes = digits_at(zone, 4, 2);
  if (!hours || !minutes) return std::nullopt;
  return (zone[0] == '-' ? -60 : 60) * (60 * *hours + *minutes);
}

std::optional<int64_t> instant_of(std::string_view time) {
  static constexpr std::string_view form = "0000-00-00T00:00:00";
  if (time.size() <= form.size()) return std::nullopt;
  for (size_t at = 0; at < form.size(); ++at)
    if (form[at] != '0' && form[at] != time[at]) return std::nullopt;
  const auto year = digits_at(time, 0, 4), month = digits_at(time, 5, 2),
             day = digits_at(time, 8, 2), hour = digits_at(time, 11, 2),
             minute = digits_at(time, 14, 2), second = digits_at(time, 17, 2),
             offset = offset_of_zone(time.substr(form.size()));
  if (!year || !month || !day || !hour || !minute || !second || !offset) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok()) return std::nullopt;
  const int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
  const int64_t hours = days * 24 + *hour;
  return (hours * 60 + *minute) * 60 + *second - *offset;
}

std::string text_of_instant(int64_t instant) {
  using std::chrono::sys_days, std::chrono::year, std::chrono::days;
  static_assert(sys_days(year(0) / 1 / 1).time_since_epoch() / std::chrono::seconds(1) ==
                first_told_instant);
  static_assert(sys_days(year(10000) / 1 / 1).time_since_epoch() / std::chrono::seconds(1) ==
                last_told_instant + 1);
  const std::chrono::sys_seconds moment{
      std::chrono::seconds(std::clamp(instant, first_told_instant, last_told_instant))};
  const auto day = std::chrono::floor<days>(moment);
  const std::chrono::year_month_day date{day};
  const std::chrono::hh_mm_ss clock{moment - day};
  std::array<char, 32> text;
  static_cast<void>(snprintf(
      text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
      static_cast<int>(clock.seconds().count())));
  return text.data();
}

// --- Lines ---

// Takes what stands in front; false, and nothing is taken, where it is something else.
static bool take(std::string_view& line, std::string_view text) {
  if (!line.starts_with(text)) return false;
  line.remove_prefix(text.size());
  return true;
}

// The text up to the quote that ends it, which is taken, too.
static std::optional<std::string_view> take_text(std::string_view& line) {
  for (size_t at = 0; at < line.size(); ++at) {
    if (line[at] == '\\') {
      ++at;  // and what is escaped
      continue;
    }
    if (line[at] != '"') continue;
    const std::string_view text = line.substr(0, at);
    line.remove_prefix(at + 1);
    return text;
  }
  return std::nullopt;
}

static std::optional<uint32_t> take_number(std::string_view& line) {
  const size_t end = std::min(line.find_first_not_of("0123456789"), line.size());
  const auto number = number_of<uint32_t>(line.substr(0, end));
  line.remove_prefix(end);
  return number;
}

std::optional<stored_start> stored_start_reader::read(std::string_view line) {
  if (!take(line, stored_record_start) || !take(line, "\"") || !take_text(line) ||
      !take(line, ",\"event\":"))
    return std::nullopt;
  const auto event = take_number(line);
  std::optional<std::string_view> name = std::string_view();
  if (take(line, ",\"name\":\"")) name = take_text(line);
  if (!event || !name || !take(line, ",\"level\":") || !take_number(line) ||
      !take(line, ",\"time\":\""))
    return std::nullopt;
  const auto time = take_text(line);
  if (!time) return std::nullopt;
  if (*time != time_ || time_.empty()) {
    const auto instant = instant_of(*time);
    if (!instant) return std::nullopt;
    time_ = *time;
    instant_ = *instant;
  }
  return stored_start{*event, *name, instant_};
}
