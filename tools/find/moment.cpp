#include "tools/find/moment.h"

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "recording/records/values.h"
#include "recording/text/number.h"
#include "recording/text/words.h"

namespace chrono = std::chrono;

static constexpr size_t date_size = sizeof "2026-11-15" - 1;

static std::string day_text(chrono::system_clock::time_point moment, int days_later) {
  const kp_Time local(moment);
  const chrono::year_month_day today{chrono::year(local.get_year()),
                                     chrono::month(local.get_month()),
                                     chrono::day(local.get_day())};
  const chrono::year_month_day day{chrono::sys_days(today) + chrono::days(days_later)};
  const kp_Time told(static_cast<int>(day.year()), static_cast<int>(unsigned{day.month()}),
                     static_cast<int>(unsigned{day.day()}), 0, 0, 0);
  std::array<char, 32> text;
  told.print_date_out(text.data(), static_cast<unsigned>(text.size()));
  return text.data();
}

static std::optional<kp_Time> read_moment(const std::string& text) {
  kp_Time moment;
  if (text.find('\0') != std::string::npos || !read_record_time(text.c_str(), moment)) return {};
  return moment;
}

static std::optional<kp_Time> told_moment(std::string text, moment_edge edge) {
  if (text.size() == date_size && edge == moment_edge::last) text += "T23:59:59";
  return read_moment(text);
}

// --- "2 hours ago"

struct span_unit {
  std::string_view name;  // of one
  chrono::seconds length;
};

static constexpr std::array<span_unit, 5> span_units = {{{"second", chrono::seconds(1)},
                                                         {"minute", chrono::minutes(1)},
                                                         {"hour", chrono::hours(1)},
                                                         {"day", chrono::days(1)},
                                                         {"week", chrono::weeks(1)}}};

static std::optional<chrono::seconds> unit_of(std::string_view name) {
  for (const span_unit& unit : span_units) {
    const bool is_plural = name.ends_with('s') && name.substr(0, name.size() - 1) == unit.name;
    if (name == unit.name || is_plural || name == unit.name.substr(0, 1)) return unit.length;
  }
  return std::nullopt;
}

// Nothing for a text that tells no span before, and for one of more than 36500 days.
static std::optional<chrono::seconds> span_ago(std::string_view text) {
  constexpr chrono::seconds most = chrono::days(36500);
  constexpr std::string_view end = " ago";
  if (!text.ends_with(end)) return std::nullopt;
  text = without_blanks(text.substr(0, text.size() - end.size()));
  const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  const auto count = number_of<uint32_t>(text.substr(0, digits));
  const auto unit = unit_of(without_blanks(text.substr(digits)));
  if (!count.has_value() || !unit.has_value() || *count > most / *unit) return std::nullopt;
  return *unit * *count;
}

kp_Time moment_of(const std::string& text, moment_edge edge, chrono::system_clock::time_point now) {
  if (text == "now") return kp_Time(now);
  if (const auto span = span_ago(text)) return kp_Time(now - *span);
  const bool is_day_before = text == "yesterday";
  const bool is_day = is_day_before || text == "today";
  const auto moment = told_moment(is_day ? day_text(now, is_day_before ? -1 : 0) : text, edge);
  if (!moment.has_value())
    throw std::invalid_argument(std::string("expected ") + moment_form + ", not " +
                                in_quotes(shortened(text)));
  return *moment;
}

std::optional<kp_Time> moment_of(const record_value& time) {
  std::string text(time.text);
  take_second_fraction(text);
  return read_moment(text);
}

int64_t seconds_of(const kp_Time& moment) {
  return chrono::floor<chrono::seconds>(moment.to_time_point()).time_since_epoch().count();
}

// --- Times of one day ---

static constexpr size_t time_of_day_at = sizeof "2026-11-15T" - 1;
static constexpr size_t zone_at = sizeof "2026-11-15T17:02:56" - 1;

// Of "17:02:56".
static std::optional<int> second_of_day(std::string_view clock) {
  const auto below = [&](size_t at, int end) {
    const int tens = clock[at] - '0', ones = clock[at + 1] - '0';
    const bool are_digits = tens >= 0 && tens <= 9 && ones >= 0 && ones <= 9;
    const int number = tens * 10 + ones;
    return are_digits && number < end ? number : -1;
  };
  if (clock[2] != ':' || clock[5] != ':') return std::nullopt;
  const int hour = below(0, 24), minute = below(3, 60), second = below(6, 60);
  if (hour < 0 || minute < 0 || second < 0) return std::nullopt;
  return (hour * 60 + minute) * 60 + second;
}

std::optional<int64_t> known_day::seconds_of(std::string_view time) const {
  const bool is_like_it = !date_.empty() && time.size() == zone_at + zone_.size() &&
                          time.starts_with(date_) && time.substr(zone_at) == zone_;
  if (!is_like_it) return std::nullopt;
  const std::optional<int> second = second_of_day(time.substr(time_of_day_at));
  if (!second) return std::nullopt;
  return begin_ + *second;
}

void known_day::learn(std::string_view time, const kp_Time& moment) {
  const bool is_near = moment.get_year() >= 1700 && moment.get_year() < 2200;
  // Days of the zone of this machine may have other lengths.
  const std::string_view zone = time.substr(std::min(zone_at, time.size()));
  const bool has_zone = zone == "Z" || (zone.size() == sizeof "+08:00" - 1 && zone[3] == ':');
  const bool is_whole = has_zone && time[time_of_day_at - 1] == 'T' && is_near;
  const auto second = is_whole ? second_of_day(time.substr(time_of_day_at)) : std::nullopt;
  date_.clear();
  if (!second) return;
  date_ = time.substr(0, time_of_day_at);
  zone_ = zone;
  begin_ = ::seconds_of(moment) - *second;
}
