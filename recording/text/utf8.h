// Decoding of UTF-8, one character at a time.
#ifndef RECORDING_TEXT_UTF8_H
#define RECORDING_TEXT_UTF8_H

#include <cstddef>
#include <cstdint>
#include <string_view>

struct utf8_character {
  uint32_t code_point = 0;
  size_t size = 0;     // bytes; 1 for a byte that begins no valid character
  bool valid = false;  // overlong forms, surrogates and values above 10FFFF are not
};

// The character at `offset`, which is within the text.
utf8_character utf8_at(std::string_view text, size_t offset);

// The offset of the first byte that is not part of a valid character; npos when there is none.
size_t utf8_first_invalid(std::string_view text);

// Whether the text holds a C0 or C1 control character or DEL.
bool has_control_character(std::string_view text);

// Bytes that the character takes in UTF-8.
size_t utf8_size(uint32_t code_point);

// UTF-16 code units of a valid text.
size_t utf16_length(std::string_view text);

#endif
