// Decimal digits of numbers, written two at a time. Each function returns the end of what it wrote,
// puts no NUL there, and touches nothing else: any thread may call it.
#ifndef KP_DIGITS_H
#define KP_DIGITS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

struct KP_digit_pair_table {
  constexpr KP_digit_pair_table() {
    for (size_t i = 0; i < 100; ++i) {
      text[2 * i] = static_cast<char>('0' + i / 10);
      text[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
  }
  char text[200]{};
};
inline constexpr KP_digit_pair_table KP_digit_pairs;

// Two digits, of a value below 100.
inline char* KP_put_pair(uint32_t value, char* at) noexcept {
  std::memcpy(at, KP_digit_pairs.text + 2 * size_t{value}, 2);
  return at + 2;
}

// Four digits, of a value below 10000.
inline char* KP_put_four(uint32_t value, char* at) noexcept {
  return KP_put_pair(value % 100, KP_put_pair(value / 100, at));
}

// As many digits as there are, of a value below 100, and below 10000.
inline char* KP_put_up_to_two(uint32_t value, char* at) noexcept {
  if (value >= 10) return KP_put_pair(value, at);
  *at = static_cast<char>('0' + value);
  return at + 1;
}

inline char* KP_put_up_to_four(uint32_t value, char* at) noexcept {
  if (value < 100) return KP_put_up_to_two(value, at);
  return KP_put_pair(value % 100, KP_put_up_to_two(value / 100, at));
}

// As many digits as there are, at most 10 or 20.
inline char* KP_put_decimal(uint32_t value, char* at) noexcept {
  if (value < 10000) return KP_put_up_to_four(value, at);
  const uint32_t above = value / 10000;
  at = above < 10000 ? KP_put_up_to_four(above, at)
                     : KP_put_four(above % 10000, KP_put_up_to_two(above / 10000, at));
  return KP_put_four(value % 10000, at);
}

inline char* KP_put_decimal(uint64_t value, char* at) noexcept {
  constexpr uint64_t eight_digits = 100000000;
  if (value <= std::numeric_limits<uint32_t>::max())
    return KP_put_decimal(static_cast<uint32_t>(value), at);
  const auto below = static_cast<uint32_t>(value % eight_digits);
  at = KP_put_decimal(value / eight_digits, at);
  return KP_put_four(below % 10000, KP_put_four(below / 10000, at));
}

#endif
