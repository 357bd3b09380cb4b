#include "history_line.h"

#include <algorithm>
#include <iterator>

// A word of dpkg's, and what it means.
template <class Value>
struct history_word {
  std::string_view word;
  Value value;
};

constexpr history_word<history_state> states[] = {
    {"not-installed", history_state::NOT_INSTALLED},
    {"config-files", history_state::CONFIG_FILES},
    {"half-installed", history_state::HALF_INSTALLED},
    {"unpacked", history_state::UNPACKED},
    {"half-configured", history_state::HALF_CONFIGURED},
    {"triggers-awaited", history_state::TRIGGERS_AWAITED},
    {"triggers-pending", history_state::TRIGGERS_PENDING},
    {"installed", history_state::INSTALLED}};
constexpr history_word<history_command> commands[] = {
    {"archives unpack", history_command::UNPACK},
    {"archives install", history_command::INSTALL},
    {"packages configure", history_command::CONFIGURE},
    {"packages triggers-only", history_command::TRIGGERS},
    {"packages remove", history_command::REMOVE},
    {"packages purge", history_command::PURGE}};
constexpr history_word<history_decision> decisions[] = {{"install", history_decision::REPLACED},
                                                        {"keep", history_decision::KEPT}};

template <class Value, size_t n_words>
static Value meaning_of(std::string_view word, const history_word<Value> (&words)[n_words],
                        const char* fault) {
  const auto* found = std::find_if(std::begin(words), std::end(words),
                                   [word](const auto& row) { return row.word == word; });
  if (found == std::end(words)) throw history_line_error(fault);
  return found->value;
}

// Takes the first word, and the blank behind it, off the front of `rest`.
static std::string_view take_word(std::string_view& rest) {
  const size_t length = std::min(rest.find(' '), rest.size());
  if (length == 0) throw history_line_error("a field is missing");
  const std::string_view word = rest.substr(0, length);
  rest.remove_prefix(std::min(length + 1, rest.size()));
  return word;
}

static void expect_end(std::string_view rest) {
  if (!rest.empty()) throw history_line_error("there are more fields than expected");
}

// PACKAGE INSTALLED-VERSION AVAILABLE-VERSION
static void parse_action(std::string_view fields, history_record& record) {
  record.subject = take_word(fields);
  record.installed = take_word(fields);
  record.available = take_word(fields);
  expect_end(fields);
}

// STATE PACKAGE INSTALLED-VERSION
static void parse_status(std::string_view fields, history_record& record) {
  record.state = meaning_of(take_word(fields), states, "the state is unknown");
  record.subject = take_word(fields);
  record.installed = take_word(fields);
  expect_end(fields);
}

// TYPE COMMAND
static void parse_startup(std::string_view fields, history_record& record) {
  record.command = meaning_of(fields, commands, "the command is unknown");
}

// FILE DECISION; a file's name may hold blanks.
static void parse_conffile(std::string_view fields, history_record& record) {
  const size_t blank = fields.rfind(' ');
  if (blank == std::string_view::npos || blank == 0) throw history_line_error("a field is missing");
  record.decision = meaning_of(fields.substr(blank + 1), decisions, "the decision is unknown");
  record.subject = fields.substr(0, blank);
}

struct history_kind_row {
  std::string_view word;
  void (*parse_fields)(std::string_view fields, history_record& record);
};

// By history_kind.
constexpr history_kind_row kinds[] = {{"install", parse_action},   {"upgrade", parse_action},
                                      {"configure", parse_action}, {"trigproc", parse_action},
                                      {"remove", parse_action},    {"purge", parse_action},
                                      {"disappear", parse_action}, {"status", parse_status},
                                      {"startup", parse_startup},  {"conffile", parse_conffile}};
static_assert(std::size(kinds) == history_kind_count);

static history_kind kind_of(std::string_view word) {
  const auto found = std::find_if(std::begin(kinds), std::end(kinds),
                                  [word](const history_kind_row& row) { return row.word == word; });
  if (found == std::end(kinds)) throw history_line_error("the kind of event is unknown");
  return static_cast<history_kind>(found - std::begin(kinds));
}

// Messages go to terminals, which obey control characters, those of UTF-8 (U+0080 to U+009F)
// included.
static bool has_control_character(std::string_view line) {
  for (size_t i = 0; i < line.size(); ++i) {
    const auto byte = static_cast<unsigned char>(line[i]);
    if (byte < 0x20 || byte == 0x7F) return true;
    if (byte == 0xC2 && i + 1 < line.size() && static_cast<unsigned char>(line[i + 1]) < 0xA0)
      return true;
  }
  return false;
}

// Takes "YYYY-MM-DD HH:MM:SS", and the blank behind it, off the front of `rest`.
static kp_Time take_time(std::string_view& rest) {
  constexpr size_t length = 19;
  kp_Time time;
  const bool is_time = rest.size() > length && rest[length] == ' ' &&
                       time.set_to_string_value(std::string(rest.substr(0, length)).c_str());
  if (!is_time) throw history_line_error("the line does not begin with a date and a time");
  rest.remove_prefix(length + 1);
  return time;
}

history_record parse_history_line(std::string_view line) {
  if (has_control_character(line)) throw history_line_error("the line holds control characters");
  history_record record;
  record.time = take_time(line);
  record.kind = kind_of(take_word(line));
  kinds[static_cast<size_t>(record.kind)].parse_fields(line, record);
  return record;
}
