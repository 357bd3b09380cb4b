#include "recording/text/line_writer.h"

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

// ---- Numbers ----

char* line_writer::put_decimal(uint32_t digits, char* at) {
  return KP_put_decimal(digits, at);
}

char* line_writer::put_decimal(uint64_t digits, char* at) {
  return KP_put_decimal(digits, at);
}

// Whether a number below 10^9 is a whole one and at most six decimals. At most 15 digits read back
// as the number, so without zeros at the end no other text with as few does.
struct short_decimal {
  uint32_t whole = 0;
  uint32_t millionths = 0;

  bool is(double magnitude) {
    constexpr double scale = 1e6;
    if (!(magnitude < 1e9)) return false;
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): a wrong one is seen in the next line
    const auto digits = static_cast<uint64_t>(magnitude * scale + 0.5);
    if (static_cast<double>(digits) / scale != magnitude) return false;
    whole = static_cast<uint32_t>(digits / 1000000);
    millionths = static_cast<uint32_t>(digits % 1000000);
    return true;
  }

  // Whether an exponent, "1e-05", may take fewer characters.
  bool may_be_shorter_with_exponent() const {
    if (millionths == 0) return whole >= 100000 && whole % 10 == 0;
    return whole == 0 && millionths < 1000;
  }

  // Returns the end of the text.
  char* put(char* at) const {
    at = KP_put_decimal(whole, at);
    if (millionths == 0) return at;
    *at++ = '.';
    at = KP_put_pair(millionths % 100, KP_put_four(millionths / 100, at));
    while (at[-1] == '0') --at;
    return at;
  }
};

void line_writer::append_number(double number) {
  constexpr size_t longest = 32;
  make_room(longest);
  short_decimal decimal;
  if (!decimal.is(std::fabs(number)) || decimal.may_be_shorter_with_exponent()) {
    at_ = std::to_chars(at_, at_ + longest, number).ptr;
    return;
  }
  if (std::signbit(number)) *at_++ = '-';
  at_ = decimal.put(at_);
}
