// Unicode characters for tests, all of them.
#ifndef TESTS_COMMAND_CHARACTERS_H
#define TESTS_COMMAND_CHARACTERS_H

#include <unicode/utf8.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "recording/text/escape.h"

inline bool is_scalar_value(uint32_t code_point) {
  return code_point <= 0x10FFFF && (code_point < 0xD800 || code_point > 0xDFFF);
}

// Appends the character in UTF-8, by ICU's macro.
inline void append_utf8(std::string& text, uint32_t code_point) {
  std::array<uint8_t, U8_MAX_LENGTH> bytes{};
  size_t size = 0;
  U8_APPEND_UNSAFE(bytes.data(), size, code_point);
  text.append(bytes.begin(), bytes.begin() + size);
}

inline std::string utf8_of(uint32_t code_point) {
  std::string text;
  append_utf8(text, code_point);
  return text;
}

// All scalar values that are unsafe on a terminal, and are written out therefore.
inline const std::vector<uint32_t>& unsafe_characters() {
  static const std::vector<uint32_t> unsafe = [] {
    std::vector<uint32_t> found;
    for (uint32_t code_point = 0; code_point <= 0x10FFFF; ++code_point)
      if (is_scalar_value(code_point) && is_unsafe_on_terminal(code_point))
        found.push_back(code_point);
    return found;
  }();
  return unsafe;
}

// Any scalar value; half of them are unsafe ones.
template <class Random>
uint32_t random_character(Random& random) {
  const std::vector<uint32_t>& unsafe = unsafe_characters();
  if (random() % 2 == 0) return unsafe[random() % unsafe.size()];
  uint32_t code_point = 0;
  do code_point = static_cast<uint32_t>(random() % 0x110000);
  while (!is_scalar_value(code_point));
  return code_point;
}

#endif
