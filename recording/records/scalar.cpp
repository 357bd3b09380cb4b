#include "recording/records/scalar.h"

static bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// Walks over a number as JSON writes it. Records are full of them: it takes a comparison or two a
// character.
class number_scanner {
 public:
  explicit number_scanner(std::string_view text)
      : at_(text.data()), end_(text.data() + text.size()) {}

  // Nothing when the text is no number.
  std::optional<record_value_kind> kind() {
    take('-');
    if (!take('0') && !take_digits()) return {};
    const bool has_fraction = take('.');
    if (has_fraction && !take_digits()) return {};
    const bool has_exponent = take('e') || take('E');
    if (has_exponent && !take('+')) take('-');
    if (has_exponent && !take_digits()) return {};
    if (at_ != end_) return {};
    return has_fraction || has_exponent ? record_value_kind::real : record_value_kind::integer;
  }

 private:
  bool take(char c) {
    if (at_ == end_ || *at_ != c) return false;
    ++at_;
    return true;
  }

  bool take_digits() {
    const char* const begin = at_;
    while (at_ != end_ && is_digit(*at_)) ++at_;
    return at_ != begin;
  }

  const char* at_;
  const char* end_;
};

std::optional<record_value_kind> scalar_kind(std::string_view token) {
  const char first = token.empty() ? '\0' : token.front();
  if (first == '-' || is_digit(first)) return number_scanner(token).kind();
  if (token == "true" || token == "false") return record_value_kind::boolean;
  if (token == "null") return record_value_kind::null;
  return {};
}

static bool is_json_blank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string_view without_blanks_behind(std::string_view token) {
  while (!token.empty() && is_json_blank(token.back())) token.remove_suffix(1);
  return token;
}
