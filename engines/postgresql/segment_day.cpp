#include "engines/postgresql/segment_day.h"

#include <array>
#include <charconv>
#include <chrono>
#include <optional>

#include "recording/files/dated_name.h"
#include "tools/ship/engine.h"

static constexpr std::chrono::sys_days pg_first_day =
    std::chrono::year(2000) / std::chrono::January / 1;

static std::optional<int64_t> pg_day_if_any(std::string_view digits) {
  unsigned number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (digits.size() != 8 || error != std::errc{} || end != digits.data() + digits.size())
    return std::nullopt;
  const std::chrono::year_month_day day{std::chrono::year(static_cast<int>(number / 10000)),
                                        std::chrono::month(number / 100 % 100),
                                        std::chrono::day(number % 100)};
  if (!day.ok()) return std::nullopt;
  return (std::chrono::sys_days(day) - pg_first_day).count();
}

int64_t pg_segment_day(std::string_view segment) {
  static constexpr size_t behind_day = std::string_view(".0001").size() + segment_ending.size();
  std::optional<int64_t> day;
  if (segment.size() >= behind_day + 8)
    day = pg_day_if_any(segment.substr(segment.size() - behind_day - 8, 8));
  return day.value_or(*pg_day_if_any("00000101"));
}

int64_t pg_day_number(std::string_view day) {
  const std::optional<int64_t> number = pg_day_if_any(day);
  if (!number)
    throw engine_error("a day is told by eight digits, 20261115, not \"" + std::string(day) + "\"");
  return *number;
}

std::string pg_day_text(int64_t number) {
  const std::chrono::year_month_day day(pg_first_day + std::chrono::days(number));
  const unsigned digits = static_cast<unsigned>(static_cast<int>(day.year())) * 10000 +
                          static_cast<unsigned>(day.month()) * 100 +
                          static_cast<unsigned>(day.day());
  const std::string text = std::to_string(digits);
  return std::string(8 - text.size(), '0') + text;
}
