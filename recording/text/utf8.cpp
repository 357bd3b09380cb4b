#include "recording/text/utf8.h"

static unsigned byte_at(std::string_view text, size_t offset) {
  return static_cast<unsigned char>(text[offset]);
}

// The size that a lead byte announces; 0 for a byte that leads nothing.
static size_t announced_size(unsigned lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xC2) return 0;
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  return lead < 0xF5 ? 4 : 0;
}

static bool is_scalar_value(uint32_t code_point) {
  return code_point <= 0x10FFFF && (code_point < 0xD800 || code_point > 0xDFFF);
}

utf8_character utf8_at(std::string_view text, size_t offset) {
  const unsigned lead = byte_at(text, offset);
  const utf8_character broken{.code_point = lead, .size = 1};
  const size_t size = announced_size(lead);
  if (size == 0 || size > text.size() - offset) return broken;
  if (size == 1) return {.code_point = lead, .size = 1, .valid = true};
  uint32_t code_point = lead & (0xFFu >> (size + 1));
  for (size_t i = 1; i < size; ++i) {
    const unsigned next = byte_at(text, offset + i);
    if ((next & 0xC0) != 0x80) return broken;
    code_point = code_point << 6 | (next & 0x3F);
  }
  if (!is_scalar_value(code_point) || utf8_size(code_point) != size) return broken;
  return {.code_point = code_point, .size = size, .valid = true};
}

size_t utf8_first_invalid(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const utf8_character character = utf8_at(text, i);
    if (!character.valid) return i;
    i += character.size;
  }
  return std::string_view::npos;
}

size_t utf8_size(uint32_t code_point) {
  if (code_point < 0x80) return 1;
  if (code_point < 0x800) return 2;
  return code_point < 0x10000 ? 3 : 4;
}

size_t utf16_length(std::string_view text) {
  size_t units = 0;
  for (size_t i = 0; i < text.size();) {
    const utf8_character character = utf8_at(text, i);
    units += character.code_point >= 0x10000 ? 2 : 1;
    i += character.size;
  }
  return units;
}

bool has_control_character(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const utf8_character character = utf8_at(text, i);
    if (character.code_point < 0x20 ||
        (character.code_point >= 0x7F && character.code_point < 0xA0))
      return true;
    i += character.size;
  }
  return false;
}
