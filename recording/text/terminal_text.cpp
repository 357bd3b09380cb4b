#include "recording/text/terminal_text.h"

#include <unicode/uchar.h>

// Format characters of Arabic and a few other scripts, which are shown before the digits or letters
// that they belong to, hide nothing.
static bool is_invisible_format(UChar32 character) {
  return u_charType(character) == U_FORMAT_CHAR &&
         u_hasBinaryProperty(character, UCHAR_PREPENDED_CONCATENATION_MARK) == 0;
}

bool is_unsafe_on_terminal(uint32_t code_point) {
  constexpr uint32_t unsafe_categories = U_GC_CC_MASK | U_GC_ZL_MASK | U_GC_ZP_MASK | U_GC_CS_MASK;
  const auto character = static_cast<UChar32>(code_point);
  return (U_MASK(u_charType(character)) & unsafe_categories) != 0 ||
         is_invisible_format(character) ||
         u_hasBinaryProperty(character, UCHAR_DEFAULT_IGNORABLE_CODE_POINT) != 0 ||
         u_hasBinaryProperty(character, UCHAR_NONCHARACTER_CODE_POINT) != 0;
}

std::string hexadecimal(uint32_t value, size_t digits) {
  std::string text;
  for (; value != 0 || text.size() < digits; value /= 16)
    text.insert(text.begin(), "0123456789ABCDEF"[value % 16]);
  return text;
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
  for (const utf8_character& character : utf8(escaped)) width += cells(character.code_point);
  return width;
}
