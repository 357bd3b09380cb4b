#include "tools/find/name_pattern.h"

#include "recording/text/utf8.h"

bool is_name_pattern(std::string_view text) {
  return text.find_first_of("*?") != std::string_view::npos;
}

static size_t character_size(std::string_view text, size_t at) {
  return utf8_at(text, at).bytes.size();
}

// Where the pattern does not fit behind its last "*", that takes one character more; what it took
// before is never tried again.
bool fits_name_pattern(std::string_view text, std::string_view pattern) {
  size_t in_text = 0;
  size_t in_pattern = 0;
  size_t behind_star = std::string_view::npos;
  size_t star_end = 0;  // of what the star has taken
  while (in_text < text.size()) {
    const char next = in_pattern < pattern.size() ? pattern[in_pattern] : '\0';
    if (next == '*') {
      behind_star = ++in_pattern;
      star_end = in_text;
    } else if (next == '?') {
      in_text += character_size(text, in_text);
      ++in_pattern;
    } else if (in_pattern < pattern.size() && next == text[in_text]) {
      ++in_text;
      ++in_pattern;
    } else if (behind_star != std::string_view::npos) {
      star_end += character_size(text, star_end);
      in_text = star_end;
      in_pattern = behind_star;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', in_pattern) == std::string_view::npos;
}
