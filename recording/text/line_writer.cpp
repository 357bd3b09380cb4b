#include "recording/text/line_writer.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

void line_writer::grow(size_t size) {
  const size_t held = text().size();
  const size_t room = 2 * (held + size);
  std::unique_ptr<char[]> larger(new char[room]);
  std::memcpy(larger.get(), bytes_.get(), held);
  bytes_ = std::move(larger);
  at_ = bytes_.get() + held;
  end_ = bytes_.get() + room;
}

// ---- Floats ----

// Whether a number below 10^9 is a whole one divided by 10^decimals, in as few digits as can be.
// At most 15 digits read back as the number, so no other text with as few does.
struct short_decimal {
  int64_t digits = 0;
  int decimals = 6;

  bool is(double magnitude) {
    constexpr double scale = 1e6;
    if (!(magnitude < 1e9)) return false;
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): a wrong one is seen in the next line
    digits = static_cast<int64_t>(magnitude * scale + 0.5);
    if (static_cast<double>(digits) / scale != magnitude) return false;
    for (; decimals > 0 && digits % 10 == 0; --decimals) digits /= 10;
    return true;
  }

  // Whether an exponent, "1e-05", would take fewer characters.
  bool is_longer_than_with_exponent() const {
    if (decimals == 0) return digits >= 100000 && digits % 10 == 0;
    return digits < 10 ? decimals > 3 : digits < 100 && decimals > 5;
  }
};

// Puts the text at `out` and returns its end.
static char* put_decimal(const short_decimal& decimal, char* out) {
  std::array<char, 24> text;
  char* const end = text.data() + text.size();
  char* at = end;
  int64_t rest = decimal.digits;
  for (int i = 0; i < decimal.decimals; ++i, rest /= 10) *--at = static_cast<char>('0' + rest % 10);
  if (decimal.decimals != 0) *--at = '.';
  do {
    *--at = static_cast<char>('0' + rest % 10);
    rest /= 10;
  } while (rest != 0);
  const auto size = static_cast<size_t>(end - at);
  KP_copy_short(out, at, size);
  return out + size;
}

void line_writer::append_number(double number) {
  constexpr size_t longest = 32;
  make_room(longest);
  short_decimal decimal;
  if (!decimal.is(std::fabs(number)) || decimal.is_longer_than_with_exponent()) {
    at_ = std::to_chars(at_, at_ + longest, number).ptr;
    return;
  }
  if (std::signbit(number)) *at_++ = '-';
  at_ = put_decimal(decimal, at_);
}
