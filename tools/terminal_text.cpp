#include "tools/terminal_text.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <array>

#include "tools/utf8_text.h"

// First and last of each range of characters that are unsafe beside the C0 controls.
static constexpr std::array<std::array<uint32_t, 2>, 7> unsafe_ranges = {{
    {0x7F, 0x9F},      // DEL and the C1 controls
    {0x61C, 0x61C},    // Arabic letter mark
    {0x200B, 0x200F},  // characters without width, directional marks
    {0x2028, 0x202E},  // line and paragraph separator, directional embeddings
    {0x2060, 0x2064},  // more characters without width
    {0x2066, 0x2069},  // directional isolates
    {0xFEFF, 0xFEFF},  // byte order mark
}};

bool is_unsafe_on_terminal(uint32_t code_point) {
  return code_point < 0x20 ||
         std::any_of(unsafe_ranges.begin(), unsafe_ranges.end(), [&](const auto& range) {
           return code_point >= range[0] && code_point <= range[1];
         });
}

std::string hexadecimal(uint32_t value, size_t digits) {
  std::string text;
  for (; value != 0 || text.size() < digits; value /= 16)
    text.insert(text.begin(), "0123456789ABCDEF"[value % 16]);
  return text;
}

static std::string written_out(uint32_t code_point, bool valid) {
  const bool is_byte = !valid || code_point < 0x80;
  return is_byte ? "\\x" + hexadecimal(code_point, 2) : "\\u{" + hexadecimal(code_point, 4) + "}";
}

std::string terminal_text(std::string_view text) {
  std::string shown;
  for (size_t i = 0; i < text.size();) {
    const utf8_character character = utf8_at(text, i);
    if (character.valid && character.code_point == '\t')
      shown += ' ';
    else if (!character.valid || is_unsafe_on_terminal(character.code_point))
      shown += written_out(character.code_point, character.valid);
    else
      shown += text.substr(i, character.size);
    i += character.size;
  }
  return shown;
}

static size_t cells(uint32_t code_point) {
  if (code_point < 0x300) return 1;
  const UChar32 character = static_cast<UChar32>(code_point);
  const int8_t category = u_charType(character);
  if (category == U_NON_SPACING_MARK || category == U_ENCLOSING_MARK) return 0;
  const int width = u_getIntPropertyValue(character, UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

size_t terminal_width(std::string_view escaped) {
  size_t width = 0;
  for (size_t i = 0; i < escaped.size();) {
    const utf8_character character = utf8_at(escaped, i);
    width += cells(character.code_point);
    i += character.size;
  }
  return width;
}
