#include "recording/text/duration.h"

#include <array>

#include "recording/text/number.h"

struct duration_unit {
  char letter;
  std::chrono::seconds span;
};

static constexpr std::array<duration_unit, 4> duration_units = {{
    {'d', std::chrono::hours(24)},
    {'h', std::chrono::hours(1)},
    {'m', std::chrono::minutes(1)},
    {'s', std::chrono::seconds(1)},
}};

static constexpr std::chrono::seconds longest_duration = std::chrono::hours(24) * 36500;

std::optional<std::chrono::seconds> duration_of(std::string_view text) {
  if (text.empty()) return std::nullopt;
  for (const duration_unit& unit : duration_units) {
    if (unit.letter != text.back()) continue;
    const auto number = number_of<uint32_t>(text.substr(0, text.size() - 1)).value_or(0);
    if (number == 0 || number > longest_duration / unit.span) return std::nullopt;
    return number * unit.span;
  }
  return std::nullopt;
}

std::string duration_text(std::chrono::seconds duration) {
  for (const duration_unit& unit : duration_units)
    if (duration % unit.span == std::chrono::seconds(0))
      return std::to_string(duration / unit.span) + unit.letter;
  return "";  // seconds divide all
}
