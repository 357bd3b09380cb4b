#include "recording/text/size.h"

#include "recording/text/number.h"

std::optional<uintmax_t> size_of(std::string_view text) {
  const size_t unit = std::string_view("KMG").find(text.empty() ? '\0' : text.back());
  const int shift = unit == std::string_view::npos ? 0 : static_cast<int>(unit + 1) * 10;
  if (shift != 0) text.remove_suffix(1);
  const uintmax_t number = number_of<uintmax_t>(text).value_or(0);
  if (number == 0 || number > (UINTMAX_MAX >> 1 >> shift)) return std::nullopt;
  return number << shift;
}
