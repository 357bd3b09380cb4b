// Numbers written in texts.
#ifndef RECORDING_TEXT_NUMBER_H
#define RECORDING_TEXT_NUMBER_H

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

// The number that the whole text is; nothing for any other text, and for what the type cannot hold.
// Whole numbers are decimal unless another base is given. Blanks and "+" are no part of a number,
// and "-" is none of an unsigned one; zeros in front are.
template <class Number, class... Base>
std::optional<Number> number_of(std::string_view text, Base... base) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [behind, error] = std::from_chars(text.data(), end, number, base...);
  if (error != std::errc() || behind != end) return std::nullopt;
  return number;
}

// The same of a number without a sign, in hexadecimal behind "0x" or "0X".
template <std::unsigned_integral Number>
std::optional<Number> number_of_either_base(std::string_view text) {
  const bool is_hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  return is_hexadecimal ? number_of<Number>(text.substr(2), 16) : number_of<Number>(text);
}

// In hexadecimal with capital letters, and zeros in front up to `digits`.
inline std::string hexadecimal(uint64_t number, size_t digits) {
  std::string text;
  for (; number != 0 || text.size() < digits; number /= 16)
    text.insert(text.begin(), "0123456789ABCDEF"[number % 16]);
  return text;
}

#endif
