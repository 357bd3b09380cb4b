#include "history_options.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>

const char history_usage[] =
    "usage: package_history [OPTION...] [FILE]\n"
    "\n"
    "Tells a package history in English, German and Japanese: that of FILE, or this\n"
    "machine's own (/var/log/dpkg.log). Events that a filter accepts are written to text\n"
    "logs, one for each day, and counted.\n"
    "\n"
    "  --last N             print the last N messages of each language (12)\n"
    "  --all                print all of them\n"
    "  --min-level N        accept log levels from N on (0)\n"
    "  --max-level N        accept log levels up to N (9)\n"
    "  --config FILE        a configuration file, whose values replace those of the filter\n"
    "  --section NAME       its section for the filter (package_history)\n"
    "  --output DIR         keep text logs and counts in DIR, behind what is there already;\n"
    "                       without it they are gone when the program ends\n"
    "  --max-size BYTES     begin a new text log where one would grow beyond (1048576)\n"
    "  --log-locale LOCALE  the language of the text logs: en_US, de_DE or ja_JP (en_US)\n"
    "  --help               print this text\n"
    "\n"
    "exit status: 0 told, 1 an error, 2 a wrong command line\n";

// Reads a whole text as a number from `least` to `most`; false, leaving `number` alone, otherwise.
template <class Number>
static bool read_number(std::string_view text, Number least, Number most, Number& number) {
  Number read = 0;
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), read);
  if (error != std::errc() || rest != text.data() + text.size()) return false;
  if (read < least || read > most) return false;
  number = read;
  return true;
}

static bool set_help(const char*, history_options& options) {
  options.help = true;
  return true;
}

static bool set_all(const char*, history_options& options) {
  options.n_shown = std::numeric_limits<size_t>::max();
  return true;
}

static bool set_last(const char* value, history_options& options) {
  return read_number<size_t>(value, 0, std::numeric_limits<size_t>::max(), options.n_shown);
}

template <unsigned history_options::*level>
static bool set_level(const char* value, history_options& options) {
  return read_number(value, 0U, 9U, options.*level);
}

static bool set_max_size(const char* value, history_options& options) {
  return read_number<uintmax_t>(value, 1, std::numeric_limits<uintmax_t>::max(), options.max_size);
}

template <const char* history_options::*text>
static bool set_text(const char* value, history_options& options) {
  options.*text = value;
  return value[0] != '\0';
}

static bool set_log_locale(const char* value, history_options& options) {
  options.log_language = find_history_language(value);
  return options.log_language != nullptr;
}

struct history_option {
  std::string_view name;
  const char* wanted;                                        // as a value; null: it takes none
  bool (*set)(const char* value, history_options& options);  // false: the value is not one of them
};

constexpr history_option known_options[] = {
    {"--help", nullptr, set_help},
    {"--all", nullptr, set_all},
    {"--last", "a number", set_last},
    {"--min-level", "a level from 0 to 9", set_level<&history_options::min_level>},
    {"--max-level", "a level from 0 to 9", set_level<&history_options::max_level>},
    {"--config", "a file", set_text<&history_options::config>},
    {"--section", "a name", set_text<&history_options::section>},
    {"--output", "a folder", set_text<&history_options::output>},
    {"--max-size", "a number of bytes from 1 on", set_max_size},
    {"--log-locale", "en_US, de_DE or ja_JP", set_log_locale}};

// The option of that name; null for a text that is no option but a file.
static const history_option* find_option(std::string_view name) {
  if (!name.starts_with('-')) return nullptr;
  const auto* found = std::find_if(std::begin(known_options), std::end(known_options),
                                   [name](const history_option& row) { return row.name == name; });
  if (found == std::end(known_options))
    throw history_usage_error("unknown option '" + std::string(name) + "'");
  return found;
}

static void set_option(const history_option& option, const char* value, history_options& options) {
  if (option.set(value, options)) return;
  throw history_usage_error(std::string(option.name) + " needs " + option.wanted + ", not '" +
                            value + "'");
}

static void set_path(const char* path, history_options& options) {
  if (options.path != nullptr) throw history_usage_error("more than one file");
  options.path = path;
}

history_options parse_history_options(char** arguments) {
  history_options options;
  while (const char* argument = *++arguments) {
    const history_option* option = find_option(argument);
    if (option == nullptr) {
      set_path(argument, options);
    } else if (option->wanted == nullptr) {
      set_option(*option, nullptr, options);
    } else {
      if (*++arguments == nullptr)
        throw history_usage_error(std::string(argument) + " needs " + option->wanted);
      set_option(*option, *arguments, options);
    }
  }
  return options;
}
