#include "tools/source/settings_check.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "logging/logentry_i.h"
#include "recording/text/number.h"
#include "recording/text/words.h"

static constexpr size_t longest_line = 128;
static constexpr std::string_view all_sections = "global";
static constexpr size_t most_changed = 2;  // letters of a key that is one of ours misspelt

// The keys that the entry filter reads, and the largest value that means something.
struct filter_key_row {
  std::string_view name;
  uint32_t most;
};
static constexpr filter_key_row filter_keys[] = {
    {"LogLevelLow", LOG_LEVEL_HIGH},      {"LogLevelHigh", LOG_LEVEL_HIGH},
    {"DebugLogLevelLow", LOG_LEVEL_HIGH}, {"DebugLogLevelHigh", LOG_LEVEL_HIGH},
    {"DebugEnabled", UINT32_MAX},         {"PropertyMask", UINT32_MAX}};

// Null for a key of a program's own.
static const filter_key_row* filter_key(std::string_view name) {
  const auto* const row = std::find_if(std::begin(filter_keys), std::end(filter_keys),
                                       [&](const auto& known) { return known.name == name; });
  return row == std::end(filter_keys) ? nullptr : row;
}

// What stands before the longest key of the filter that ends with `key`, one of them itself: "x" of
// "xDebugLogLevelLow". No section of a program has an empty name.
static std::string_view section_before_filter_key(std::string_view joined, std::string_view key) {
  std::string_view section = joined.substr(0, joined.size() - key.size());
  if (filter_key(key) == nullptr) return section;
  for (const filter_key_row& row : filter_keys)
    if (joined.ends_with(row.name) && joined.size() > row.name.size())
      section = section.substr(0, joined.size() - row.name.size());
  return section;
}

bool is_configuration_path(const std::string& path) {
  return path.ends_with(".conf");
}

// --- Lines and tokens ---

// A line as the library reads it. Its end is one CR or LF, and one more of either behind it.
struct configuration_line {
  std::string_view text;
  size_t next = 0;       // offset of the line behind it
  bool is_lost = false;  // it ends with the file
};

static bool is_end(std::string_view bytes, size_t at) {
  return at < bytes.size() && (bytes[at] == '\n' || bytes[at] == '\r');
}

static configuration_line line_at(std::string_view bytes, size_t begin) {
  size_t end = begin;
  while (end < bytes.size() && !is_end(bytes, end)) ++end;
  const bool is_lost = end + 1 >= bytes.size();
  return {bytes.substr(begin, end - begin), end + (is_end(bytes, end + 1) ? 2 : 1), is_lost};
}

static std::vector<std::string_view> tokens_of(std::string_view line) {
  static constexpr std::string_view separators = " \t\n=";
  std::vector<std::string_view> tokens;
  line = line.substr(0, line.find('\0'));
  for (size_t at = line.find_first_not_of(separators); at != std::string_view::npos;) {
    const size_t end = std::min(line.find_first_of(separators, at), line.size());
    tokens.push_back(line.substr(at, end - at));
    at = line.find_first_not_of(separators, end);
  }
  return tokens;
}

// --- One file ---

class configuration_checker {
 public:
  configuration_checker(const text_file& file, diagnostic_list& found)
      : file_(file), found_(found) {}

  void check();

 private:
  void add(diagnostic_rule rule, std::string_view at, const std::string& text) {
    const size_t offset = static_cast<size_t>(at.data() - file_.bytes().data());
    found_.add(rule, {&file_, offset}, text);
  }
  void check_nul(std::string_view line);
  void check_header(std::string_view header);
  void check_setting(const std::vector<std::string_view>& tokens);
  void check_joined(std::string_view key);
  void add_joined(std::string_view key, std::string_view joined, std::string_view section);
  void check_value(std::string_view key, uint32_t most, std::string_view value);
  void check_name(std::string_view key);

  const text_file& file_;
  diagnostic_list& found_;
  bool has_section_ = false;
  std::string_view section_;
  std::map<std::string, std::string_view> sections_;  // of settings, by section and key as one text
};

void configuration_checker::check() {
  const std::string_view bytes = file_.bytes();
  if (file_.had_byte_order_mark())
    add("encoding"_rule, bytes.substr(0, 0),
        "a byte order mark stands before this line, which is read as another for it");
  for (size_t at = 0; at < bytes.size();) {
    const configuration_line line = line_at(bytes, at);
    at = line.next;
    if (line.text.size() > longest_line)
      return add("config-long-line"_rule, line.text,
                 "this line has " + std::to_string(line.text.size()) +
                     " bytes, and ends the reading; a line has at most " +
                     std::to_string(longest_line));
    check_nul(line.text);
    const std::vector<std::string_view> tokens = tokens_of(line.text);
    if (tokens.empty()) continue;
    if (line.is_lost)
      add("config-last-line"_rule, tokens.front(),
          "the last line is not read; end the file with an empty line");
    if (tokens.front().starts_with('['))
      check_header(tokens.front());
    else
      check_setting(tokens);
  }
}

void configuration_checker::check_nul(std::string_view line) {
  const size_t nul = line.find('\0');
  if (nul != std::string_view::npos)
    add("encoding"_rule, line.substr(nul),
        "a NUL ends the text of its line; what stands behind it is not read");
}

static bool is_same_but_for_case(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return x == y || (std::isalpha(static_cast<unsigned char>(x)) != 0 && (x ^ y) == 0x20);
  });
}

void configuration_checker::check_header(std::string_view header) {
  has_section_ = header.size() > 1;
  if (!has_section_) return;
  const std::string_view name = section_ = header.substr(1, header.size() - 2);
  if (name != all_sections && is_same_but_for_case(name, all_sections))
    add("config-key"_rule, header,
        "no other section inherits from " + in_quotes(name) + "; did you mean \"global\"?");
  if (header.ends_with(']')) return;
  add("config-section"_rule, header,
      "this opens the section " + in_quotes(name) +
          ": a section is its first word without the first and the last character");
}

// The library keeps a section and a key as one text.
void configuration_checker::check_joined(std::string_view key) {
  const auto [held, is_new] = sections_.emplace(std::string(section_) += key, section_);
  const std::string_view joined = held->first;
  if (is_new) return add_joined(key, joined, section_before_filter_key(joined, key));
  const std::string_view other = joined.substr(held->second.size());
  if (filter_key(key) != nullptr || filter_key(other) != nullptr)
    add_joined(key, joined, held->second);
}

void configuration_checker::add_joined(std::string_view key, std::string_view joined,
                                       std::string_view section) {
  if (section == section_) return;
  add("config-key"_rule, key,
      "this is the setting " + in_quotes(joined.substr(section.size())) + " of the section " +
          in_quotes(section) + " as well: both names are kept as one text");
}

void configuration_checker::check_setting(const std::vector<std::string_view>& tokens) {
  const std::string_view key = tokens.front();
  if (has_section_ && tokens.size() > 1) check_joined(key);
  const filter_key_row* const row = filter_key(key);
  if (row == nullptr) return check_name(key);
  if (!has_section_)
    add("config-section"_rule, key,
        in_quotes(key) + " stands in no section, and is not read; [global] is for all");
  if (tokens.size() < 2)
    add("config-value"_rule, key, in_quotes(key) + " has no value, and is not read");
  else
    check_value(key, row->most, tokens[1]);
  if (tokens.size() > 2 && tokens[2].starts_with('#'))
    add("config-comment"_rule, tokens[2],
        "there are no comments; what stands behind a value is not read");
}

// The number that the whole value is; nothing for any other text.
static bool is_number(std::string_view value, uint32_t most) {
  const std::optional<uint32_t> number = number_of_either_base<uint32_t>(value);
  return number && *number <= most;
}

void configuration_checker::check_value(std::string_view key, uint32_t most,
                                        std::string_view value) {
  const size_t comment = value.find('#');
  if (comment != std::string_view::npos && comment != 0 &&
      is_number(value.substr(0, comment), most))
    return add("config-comment"_rule, value.substr(comment),
               "there are no comments; a number ends at its first other character");
  if (!is_number(value, most))
    add("config-value"_rule, value,
        in_quotes(key) + " is a whole number from 0 to " + std::to_string(most) + ", not " +
            in_quotes(value));
}

void configuration_checker::check_name(std::string_view key) {
  if (key.starts_with('#') || key.starts_with(';')) return;
  std::string letters(key.substr(0, key.find(':')));
  std::erase_if(letters, [](char c) { return c == '_' || c == '-' || c == '.'; });
  std::vector<std::string_view> names;
  for (const auto& row : filter_keys) names.push_back(row.name);
  const std::string hint = nearest_name_hint(letters, names, most_changed);
  if (!hint.empty()) add("config-key"_rule, key, "the filter reads no " + in_quotes(key) + hint);
}

void check_configuration(const text_file& file, diagnostic_list& found) {
  configuration_checker(file, found).check();
}
