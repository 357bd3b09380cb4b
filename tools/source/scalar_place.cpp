#include "tools/source/scalar_place.h"

#include <algorithm>
#include <optional>
#include <string>

#include "recording/text/number.h"
#include "recording/text/utf8.h"

// How a piece of a scalar's notation and the value that it stands for differ in size.
struct scalar_step {
  size_t notation = 1;  // bytes in the source
  size_t value = 1;     // bytes in the value
};

// Walks through a scalar's notation and its value side by side, and stops where they disagree.
class scalar_walker {
 public:
  // `notation` is the source from the scalar on.
  scalar_walker(std::string_view notation, std::string_view value)
      : notation_(notation), value_(value) {}

  // Where in the notation byte `offset` of the value stands.
  std::optional<size_t> walk_to(size_t offset) {
    const bool is_block = notation_.starts_with('|') || notation_.starts_with('>');
    bool agrees = is_block ? begin_block() : begin_line();
    while (agrees && reached_ < offset)
      agrees = at_ < notation_.size() && (is_block ? step_in_block() : step_in_line());
    return agrees ? std::optional(at_) : std::nullopt;
  }

 private:
  // Both go on by the step, when the value has something there.
  bool take(const scalar_step& step) {
    at_ += step.notation;
    reached_ += step.value;
    return at_ <= notation_.size() && reached_ <= value_.size();
  }

  bool take_same() {
    return reached_ < value_.size() && value_[reached_] == notation_[at_] && take({});
  }

  bool take_value(std::string_view text) {
    return value_.substr(reached_).starts_with(text) && take({0, text.size()});
  }

  size_t line_end() const { return std::min(notation_.find('\n', at_), notation_.size()); }

  bool is_at_break() const {
    return notation_.substr(at_).starts_with('\n') || notation_.substr(at_).starts_with("\r\n");
  }

  // --- plain and quoted scalars

  bool begin_line() {
    quote_ = notation_.starts_with('"') || notation_.starts_with('\'') ? notation_.front() : '\0';
    at_ = quote_ == '\0' ? 0 : 1;
    return true;
  }

  bool step_in_line() {
    if (quote_ == '"' && notation_[at_] == '\\') return take_escape();
    if (quote_ == '\'' && notation_.substr(at_).starts_with("''")) return take({2, 1});
    if (ends_its_line()) return take_fold(" ");
    return take_same();
  }

  // Blanks before a line's end belong to no value.
  bool ends_its_line() const {
    const size_t end = notation_.find_first_not_of(" \t", at_);
    return end != std::string_view::npos &&
           (notation_[end] == '\n' || notation_.substr(end).starts_with("\r\n"));
  }

  // One line end stands for `alone`, each further one for itself.
  bool take_fold(std::string_view alone) {
    const size_t end = std::min(notation_.find_first_not_of(" \t\r\n", at_), notation_.size());
    const std::string_view breaks = notation_.substr(at_, end - at_);
    const auto lines = static_cast<size_t>(std::count(breaks.begin(), breaks.end(), '\n'));
    at_ = end;
    return take_value(lines > 1 ? std::string(lines - 1, '\n') : std::string(alone));
  }

  bool take_escape() {
    ++at_;
    if (at_ == notation_.size()) return false;
    if (is_at_break()) return take_fold("");
    const char kind = notation_[at_];
    const size_t digits = kind == 'x' ? 2 : kind == 'u' ? 4 : kind == 'U' ? 8 : 0;
    if (digits != 0) return take({1 + digits, size_of_hexadecimal(digits)});
    if (kind == 'N' || kind == '_') return take({1, 2});  // U+0085, U+00A0
    if (kind == 'L' || kind == 'P') return take({1, 3});  // U+2028, U+2029
    return take({1, 1});
  }

  size_t size_of_hexadecimal(size_t digits) const {
    return utf8_size(number_of<uint32_t>(notation_.substr(at_ + 1, digits), 16).value_or(0));
  }

  // --- blocks

  bool begin_block() {
    at_ = std::min(line_end() + 1, notation_.size());
    const size_t breaks = std::min(value_.find_first_not_of('\n'), value_.size());
    indent_ = indent_of_first_line() - std::min(blanks_of(value_.substr(breaks)), notation_.size());
    if (indent_ > notation_.size()) return false;
    while (is_line_empty() && reached_ < breaks)
      if (!take({line_end() + 1 - at_, 1})) return false;
    return skip_indent();
  }

  static size_t blanks_of(std::string_view line) {
    return std::min(line.find_first_not_of(' '), line.size());
  }

  size_t indent_of_first_line() const {
    const size_t first = notation_.find_first_not_of(" \r\n", at_);
    if (first == std::string_view::npos) return 0;
    return first - (notation_.rfind('\n', first) + 1);
  }

  bool is_line_empty() const {
    const size_t blanks = blanks_of(notation_.substr(at_, indent_));
    return at_ + blanks < notation_.size() &&
           (notation_[at_ + blanks] == '\n' || notation_.substr(at_ + blanks).starts_with("\r\n"));
  }

  bool skip_indent() {
    at_ += blanks_of(notation_.substr(at_, indent_));
    return true;
  }

  bool step_in_block() {
    if (!is_at_break()) return take_same();
    size_t lines = 0;
    do {
      at_ = line_end() + 1;
      ++lines;
    } while (at_ < notation_.size() && is_line_empty());
    return at_ < notation_.size() && take_block_breaks(lines) && skip_indent();
  }

  // A literal block keeps line ends, a folded one drops one of them or makes it a blank.
  bool take_block_breaks(size_t lines) {
    if (take_value(std::string(lines, '\n'))) return true;
    if (notation_.starts_with('|')) return false;
    return lines == 1 ? take_value(" ") : take_value(std::string(lines - 1, '\n'));
  }

  std::string_view notation_;
  std::string_view value_;
  char quote_ = '\0';
  size_t indent_ = 0;   // of a block
  size_t at_ = 0;       // in the notation
  size_t reached_ = 0;  // in the value
};

text_place place_in_scalar(const text_place& scalar, std::string_view value, size_t offset) {
  const size_t begin = scalar.offset();
  const auto at = scalar_walker(scalar.source->bytes().substr(begin), value).walk_to(offset);
  return at ? text_place{scalar.source, begin + *at} : scalar;
}

bool is_quote_closed(const text_place& scalar) {
  const std::string_view notation = scalar.source->bytes().substr(scalar.offset());
  const char quote = notation.empty() ? '\0' : notation.front();
  if (quote != '"' && quote != '\'') return true;
  for (size_t i = 1; i < notation.size(); ++i) {
    const bool is_escape =
        quote == '"' ? notation[i] == '\\' : notation.substr(i).starts_with("''");
    if (is_escape)
      ++i;
    else if (notation[i] == quote)
      return true;
  }
  return false;
}
