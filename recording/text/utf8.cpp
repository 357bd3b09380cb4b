#include "recording/text/utf8.h"

#include <unicode/utf16.h>
#include <unicode/utf8.h>

utf8_character utf8_decoded(std::string_view text, size_t offset) {
  if (offset == text.size()) return {0, false, offset, {}};
  const auto* const bytes = reinterpret_cast<const uint8_t*>(text.data());
  size_t end = offset;
  UChar32 code_point = 0;
  U8_NEXT(bytes, end, text.size(), code_point);
  if (code_point < 0)
    return {.code_point = bytes[offset], .offset = offset, .bytes = text.substr(offset, 1)};
  return {.code_point = static_cast<uint32_t>(code_point),
          .valid = true,
          .offset = offset,
          .bytes = text.substr(offset, end - offset)};
}

size_t utf8_first_invalid(std::string_view text) {
  for (const utf8_character& character : utf8(text))
    if (!character.valid) return character.offset;
  return std::string_view::npos;
}

size_t utf8_column(std::string_view text, size_t offset) {
  size_t column = 1;
  for (const utf8_character& character : utf8(text)) {
    if (character.offset >= offset) break;
    ++column;
  }
  return column;
}

size_t utf8_size(uint32_t code_point) {
  if (code_point < 0x80) return 1;
  if (code_point < 0x800) return 2;
  return code_point < 0x10000 ? 3 : 4;
}

size_t utf16_length(std::string_view text) {
  size_t units = 0;
  for (const utf8_character& character : utf8(text)) units += U16_LENGTH(character.code_point);
  return units;
}

bool has_control_character(std::string_view text) {
  for (const utf8_character& character : utf8(text))
    if (character.code_point < 0x20 ||
        (character.code_point >= 0x7F && character.code_point < 0xA0))
      return true;
  return false;
}
