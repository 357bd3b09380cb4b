#include "tests/command/random_definitions.h"
#include "recording/text/number.h"

#include <algorithm>
#include <numeric>

#include "tests/command/characters.h"

static constexpr size_t pool_size = 12;  // of IDs, of names

// A type, and how a placeholder of it is written behind the name.
struct random_type {
  const char* name;
  const char* format;
};

static const std::vector<random_type> random_types = {
    {"Bool", ""},      {"UInt1", ""},  {"SInt1", ":percent"},  {"UInt2", ""},
    {"TypeSInt2", ""}, {"UInt4", ""},  {"SInt4", ":currency"}, {"Float", ":percent"},
    {"Char32", ""},    {"Char64", ""}, {"TypeChar2K", ""},     {"MBChar128", ""},
    {"MBChar2K", ""},  {"Date", ""},   {"Time", ":time"},      {"Timestamp", ":date"},
    {"GUID", ""},
};

static const std::vector<std::string> random_literals = {
    " ",     "a",      "Port ",        "100% ",      "{{", "}}",      "'",  "''",
    "it''s", "\u00DF", "\u65E5\u672C", "\U0001F600", "|",  ": ",      "# ", "\\\\",
    "\\\"",  "\\n",    "\\t",          "%%",         "%d", "\\u200B", "~",  "0x10"};

static const std::vector<std::string> random_names = {"USER", "HOST", "a name", "GR\u00D6SSE",
                                                      "PORT", "no",   "0x1F",   "null",
                                                      "a: b", "#",    "-",      "{brace}"};

static std::string quoted(const std::string& text) {
  return "\"" + text + "\"";
}

size_t random_definitions::below(size_t bound) {
  return std::uniform_int_distribution<size_t>(0, bound - 1)(random_);
}

std::vector<size_t> random_definitions::some_of(size_t bound, size_t count) {
  std::vector<size_t> numbers(bound);
  std::iota(numbers.begin(), numbers.end(), 0);
  std::shuffle(numbers.begin(), numbers.end(), random_);
  numbers.resize(count);
  return numbers;
}

std::string random_definitions::source() {
  is_auxiliary_ = false;
  made_.clear();
  return set();
}

std::string random_definitions::auxiliary() {
  is_auxiliary_ = true;
  return set();
}

std::string random_definitions::set() {
  std::string made = "kplog: 1\nlog_version: \"" + std::to_string(below(10)) + "." +
                     std::to_string(below(100)) + "\"\nflags: {SECURITY: 1, AUDIT: 0x80000000}\n";
  if (once_in(2))
    made += "attributes: {SEVERITY_CODE: UInt1, \"GLOBAL\": {type: Char32, note: n}}\n";
  const std::vector<size_t> ids = some_of(pool_size, below(5));
  if (!ids.empty()) made += "events:\n";
  for (const size_t id : ids) made += event(id + 1);
  return made;
}

std::string random_definitions::event(size_t id) {
  const std::vector<size_t> names = some_of(random_names.size(), below(4));
  event_ = is_auxiliary_ ? made_[id] : made_event();
  std::string made =
      "  " + quoted("EVENT " + std::to_string(id)) + ":\n    id: " + std::to_string(id) + "\n";
  if (once_in(3)) made += "    second_word: 0xFFFFFFFF\n";
  if (once_in(2)) made += "    flags: [SECURITY, DEBUG, AUDIT]\n";
  if (once_in(4)) made += "    note: \"for people\"\n";
  made += attributes(names);
  if (!once_in(4)) made += "    message: " + message() + "\n";
  if (!is_auxiliary_) made_[id] = event_;
  return made + messages();
}

// The first attribute may be the selector, or that of the STD event.
std::string random_definitions::attributes(const std::vector<size_t>& names) {
  if (names.empty())
    return event_.selector.empty() || once_in(2) ? "" : "    select: " + event_.selector + "\n";
  const bool has_selector = once_in(2);
  std::string made = "    attributes:\n";
  for (const size_t name : names) {
    const bool is_selector = has_selector && name == names.front();
    const random_type& type = is_selector ? random_types[3] : any_of(random_types);
    const std::string key = quoted(random_names[name]);
    made += "      " + key + ": {type: " + type.name +
            (once_in(4) ? ", redirect: \"to: there\"}\n" : "}\n");
    const bool is_shown = type.name != std::string("Bool") && type.name != std::string("GUID");
    if (is_shown && random_names[name].find_first_of("{:") == std::string::npos)
      event_.placeholders.push_back("{" + random_names[name] + type.format + "}");
  }
  if (!has_selector) return made;
  event_.selector = quoted(random_names[names.front()]);
  return made + "    select: " + event_.selector + "\n";
}

std::string random_definitions::messages() {
  const size_t count = once_in(2) ? below(4) : 0;
  if (count == 0) return "";
  const std::vector<size_t> indexes = some_of(pool_size, count);
  const std::vector<size_t> values = some_of(pool_size, count);
  std::string made = "    messages:\n";
  for (size_t i = 0; i < count; ++i)
    made += "      - {index: " + std::to_string(indexes[i]) +
            ", value: " + std::to_string(values[i]) + ", " + message().substr(1) + "\n";
  return made;
}

// A map: with an ID, a text, a raw template.
std::string random_definitions::message() {
  const std::string id = "id: " + quoted("MESSAGE " + std::to_string(below(3)));
  if (once_in(4)) return "{" + id + "}";
  if (once_in(4)) return "{raw: \"raw %x%TIMESTAMP% %% 'tail\"}";
  return "{" + (once_in(2) ? id + ", " : std::string()) + "text: " + quoted(text()) + "}";
}

std::string random_definitions::text() {
  std::string made;
  size_t placeholders = 0;
  for (size_t n = below(10); n > 0; --n) {
    const bool places = !event_.placeholders.empty() && once_in(2) && placeholders < 10;
    placeholders += places ? 1 : 0;
    made += places       ? any_of(event_.placeholders)
            : once_in(2) ? any_of(random_literals)
                         : "\\U" + hexadecimal(0x80 | random_character(random_), 8);
  }
  return made;
}
