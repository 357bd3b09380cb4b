#include "recording/records/scalar.h"

static bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// Walks over a number as JSON writes it.
class number_scanner {
 public:
  explicit number_scanner(std::string_view text) : text_(text) {}

  // Nothing when the text is no number.
  std::optional<record_value_kind> kind() {
    take("-");
    if (!take("0") && !take_digits()) return {};
    const bool has_fraction = take(".");
    if (has_fraction && !take_digits()) return {};
    const bool has_exponent = take("eE");
    if (has_exponent) take("+-");
    if (has_exponent && !take_digits()) return {};
    if (!text_.empty()) return {};
    return has_fraction || has_exponent ? record_value_kind::real : record_value_kind::integer;
  }

 private:
  bool take(std::string_view choices) {
    if (text_.empty() || choices.find(text_.front()) == std::string_view::npos) return false;
    text_.remove_prefix(1);
    return true;
  }

  bool take_digits() {
    if (text_.empty() || !is_digit(text_.front())) return false;
    while (!text_.empty() && is_digit(text_.front())) text_.remove_prefix(1);
    return true;
  }

  std::string_view text_;
};

std::optional<record_value_kind> scalar_kind(std::string_view token) {
  if (token == "true" || token == "false") return record_value_kind::boolean;
  if (token == "null") return record_value_kind::null;
  return number_scanner(token).kind();
}

std::string_view without_blanks_behind(std::string_view token) {
  const size_t last = token.find_last_not_of(" \t\r\n");
  return token.substr(0, last == std::string_view::npos ? 0 : last + 1);
}
