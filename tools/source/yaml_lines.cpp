#include "tools/source/yaml_lines.h"

#include <yaml-cpp/mark.h>
#include <yaml-cpp/null.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tools/source/yaml_tree.h"

static constexpr size_t depth_limit = 32;  // further ones are left to the parser
static constexpr size_t key_limit = 128;   // bytes

static bool is_letter_or_digit(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

static bool is_of_name(char c) {
  return is_letter_or_digit(c) || c == '.' || c == '-';
}

static bool is_of_flow_text(char c) {
  return is_of_name(c) || c == '+' || c == ' ';
}

static size_t blanks_of(std::string_view text) {
  return std::min(text.find_first_not_of(' '), text.size());
}

static std::string_view without_blanks_behind(std::string_view text) {
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

class yaml_line_reader {
 public:
  explicit yaml_line_reader(const text_file& source) : source_(source) {}

  bool read() {
    const bool is_simple = source_.bytes().find_first_of("\t\r") == std::string_view::npos;
    return is_simple && begin() && column_ == 0 && read_map(0) && is_at_end_;
  }

  void tell(YAML::EventHandler& handler) const {
    handler.OnDocumentStart(YAML::Mark());
    for (const value_event& event : events_) tell(event, handler);
    handler.OnDocumentEnd();
  }

 private:
  enum class kinds { plain, quoted, map, map_end, list, list_end };

  struct value_event {
    kinds kind;
    size_t line;
    size_t column;
    std::string_view text;  // of a plain or quoted one
  };

  static void tell(const value_event& event, YAML::EventHandler& handler) {
    YAML::Mark mark;
    mark.line = static_cast<int>(event.line);
    mark.column = static_cast<int>(event.column);
    switch (event.kind) {
      case kinds::plain:
        return handler.OnScalar(mark, "?", 0, std::string(event.text));
      case kinds::quoted:
        return handler.OnScalar(mark, "!", 0, std::string(event.text));
      case kinds::map:
        return handler.OnMapStart(mark, "?", 0, YAML::EmitterStyle::Default);
      case kinds::map_end:
        return handler.OnMapEnd();
      case kinds::list:
        return handler.OnSequenceStart(mark, "?", 0, YAML::EmitterStyle::Default);
      case kinds::list_end:
        return handler.OnSequenceEnd();
    }
  }

  // --- lines

  bool begin() {
    find_line();
    return !is_at_end_;
  }

  void next_line() {
    ++line_;
    find_line();
  }

  // From this line on, one with more than a comment.
  void find_line() {
    for (; line_ < source_.line_count(); ++line_) {
      rest_ = source_.line(line_);
      column_ = 0;
      skip(blanks_of(rest_));
      if (!rest_.empty() && rest_.front() != '#') return;
    }
    is_at_end_ = true;
  }

  void skip(size_t size) {
    column_ += size;
    rest_.remove_prefix(size);
  }

  void skip_blanks() { skip(blanks_of(rest_)); }

  bool skip_one(char c) {
    if (!rest_.starts_with(c)) return false;
    skip(1);
    return true;
  }

  void put(kinds kind, std::string_view text = {}) {
    events_.push_back({kind, line_, column_, text});
  }

  // --- blocks

  // Each reads a value and the rest of its last line; depth is the number of those around it.
  bool read_block(size_t depth) {
    return rest_.starts_with("- ") ? read_list(depth) : read_map(depth);
  }

  bool read_map(size_t depth) {
    if (depth > depth_limit) return false;
    const size_t column = column_;
    put(kinds::map);
    do {
      if (!read_key() || !read_value_behind_key(column, depth)) return false;
    } while (!is_at_end_ && column_ == column);
    put(kinds::map_end);
    return is_left(column);
  }

  bool read_list(size_t depth) {
    if (depth > depth_limit) return false;
    const size_t column = column_;
    put(kinds::list);
    do {
      if (!rest_.starts_with("- ")) return false;
      skip(1);
      skip_blanks();
      if (!(size_of_key() != 0 ? read_map(depth + 1) : read_line_value(column, depth)))
        return false;
    } while (!is_at_end_ && column_ == column);
    put(kinds::list_end);
    return is_left(column);
  }

  // Whether the next line does not belong to what begins in the column, or in one further to the
  // right.
  bool is_left(size_t column) const { return is_at_end_ || column_ <= column; }

  bool read_value_behind_key(size_t column, size_t depth) {
    if (!is_rest_empty()) return read_line_value(column, depth);
    next_line();
    return !is_left(column) && read_block(depth + 1);
  }

  bool read_line_value(size_t column, size_t depth) {
    if (!read_value(depth, false) || !is_rest_empty()) return false;
    next_line();
    return is_left(column);
  }

  // But for a comment, which a blank stands before.
  bool is_rest_empty() const {
    const std::string_view rest = rest_.substr(blanks_of(rest_));
    const bool is_behind_blank = column_ > 0 && source_.line(line_)[column_ - 1] == ' ';
    return rest.empty() || (rest.front() == '#' && (rest.size() < rest_.size() || is_behind_blank));
  }

  // --- keys and texts

  // 0: there is no key here.
  size_t size_of_key() const {
    if (rest_.empty() || !is_letter_or_digit(rest_.front())) return 0;
    const auto* end = std::find_if_not(rest_.begin(), rest_.end(), is_of_name);
    const auto size = static_cast<size_t>(end - rest_.begin());
    const std::string_view behind = rest_.substr(size);
    const bool is_key = behind == ":" || behind.starts_with(": ");
    return is_key && size <= key_limit ? size : 0;
  }

  bool read_key() {
    const size_t size = size_of_key();
    if (size == 0 || !put_plain(rest_.substr(0, size))) return false;
    skip(size + 1);
    skip_blanks();
    return true;
  }

  // A source with more than may be read is left to the parser, which stops there.
  bool has_room() const { return events_.size() < yaml_node_limit; }

  bool put_plain(std::string_view text) {
    if (!has_room()) return false;
    if (text.size() <= 4 && YAML::IsNullString(std::string(text))) return false;
    put(kinds::plain, text);
    return true;
  }

  bool read_text() {
    if (rest_.empty() || !is_letter_or_digit(rest_.front())) return false;
    const std::string_view text = without_blanks_behind(rest_.substr(0, rest_.find(" #")));
    if (text.find(": ") != std::string_view::npos || text.ends_with(':')) return false;
    if (!put_plain(text)) return false;
    skip(text.size());
    return true;
  }

  bool read_quoted() {
    const size_t end = rest_.find('"', 1);
    if (end == std::string_view::npos) return false;
    const std::string_view text = rest_.substr(1, end - 1);
    if (text.find('\\') != std::string_view::npos || !has_room()) return false;
    put(kinds::quoted, text);
    skip(end + 1);
    return true;
  }

  // --- values of one line

  bool read_value(size_t depth, bool is_in_flow) {
    if (rest_.starts_with('"')) return read_quoted();
    if (rest_.starts_with('[')) return read_flow_list(depth + 1);
    if (rest_.starts_with('{')) return read_flow_map(depth + 1);
    return is_in_flow ? read_flow_text() : read_text();
  }

  bool read_flow_text() {
    if (rest_.empty() || !is_letter_or_digit(rest_.front())) return false;
    const auto* end = std::find_if_not(rest_.begin(), rest_.end(), is_of_flow_text);
    const auto size = static_cast<size_t>(end - rest_.begin());
    if (!put_plain(without_blanks_behind(rest_.substr(0, size)))) return false;
    skip(size);
    return true;
  }

  bool read_flow_list(size_t depth) {
    return read_flow(kinds::list, kinds::list_end, ']', depth,
                     [&] { return read_value(depth, true); });
  }

  bool read_flow_map(size_t depth) {
    return read_flow(kinds::map, kinds::map_end, '}', depth,
                     [&] { return read_key() && read_value(depth, true); });
  }

  template <class Item>
  bool read_flow(kinds kind, kinds end_kind, char end, size_t depth, Item read_item) {
    if (depth > depth_limit || !has_room()) return false;
    put(kind);
    skip(1);
    skip_blanks();
    if (!rest_.starts_with(end)) {
      do {
        skip_blanks();
        if (!read_item()) return false;
        skip_blanks();
      } while (skip_one(','));
    }
    put(end_kind);
    return skip_one(end);
  }

  const text_file& source_;
  std::vector<value_event> events_;
  size_t line_ = 0;  // that is read
  size_t column_ = 0;
  std::string_view rest_;  // of the line
  bool is_at_end_ = false;
};

bool read_yaml_lines(const text_file& source, YAML::EventHandler& handler) {
  yaml_line_reader reader(source);
  if (!reader.read()) return false;
  reader.tell(handler);
  return true;
}
