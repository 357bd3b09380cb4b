#include "tools/command/options.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <ostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "recording/records/event_set.h"
#include "recording/text/words.h"
#include "tools/report/outcome.h"

bool is_color_wanted(const std::string& choice, int descriptor) {
  if (choice != "auto") return choice == "always";
  return isatty(descriptor) != 0 && std::getenv("NO_COLOR") == nullptr;
}

static std::string joined_choices(const std::vector<std::string>& choices) {
  std::string joined;
  for (const std::string& choice : choices) joined += (joined.empty() ? "" : "|") + choice;
  return joined;
}

// Checks a text against the choices; says nothing in the help, where they are the type name.
static CLI::Validator one_of(const std::vector<std::string>& choices) {
  return {[choices](std::string& text) {
            const bool is_known = std::find(choices.begin(), choices.end(), text) != choices.end();
            return is_known ? "" : in_quotes(text) + " is none of " + joined_choices(choices);
          },
          ""};
}

// Refuses the empty name that a script's unset variable gives.
static CLI::Validator some_name() {
  return {[](std::string& name) { return std::string(name.empty() ? "the name is empty" : ""); },
          ""};
}

// Says of an option what `words` say, and whether it must be given.
static void describe(CLI::Option& option, const option_words& words, option_need need) {
  if (words.type_name == "FILE" || words.type_name == "FOLDER") option.check(some_name());
  option.description(words.text);
  option.type_name(words.type_name);
  option.required(need == option_need::required);
}

// Each time it is given it takes one more value, and nothing behind that.
static void take_one_each_time(CLI::Option& option) {
  option.expected(1)->allow_extra_args(false)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void add_text_option(CLI::App& command, const option_words& words, std::string& value,
                     option_need need) {
  describe(*command.add_option(words.names, value), words, need);
}

void add_number_option(CLI::App& command, const option_words& words, unsigned& value) {
  describe(*command.add_option(words.names, value), words, option_need::optional);
}

void add_read_option(CLI::App& command, const option_words& words,
                     const std::function<void(const std::string&)>& take) {
  const auto read = [take, names = words.names](const std::string& text) {
    try {
      take(text);
    } catch (const std::invalid_argument& error) {
      throw CLI::ValidationError(names, error.what());
    }
  };
  describe(*command.add_option_function<std::string>(words.names, read), words,
           option_need::optional);
}

void add_texts_option(CLI::App& command, const option_words& words,
                      std::vector<std::string>& values, option_need need) {
  CLI::Option& option = *command.add_option(words.names, values);
  describe(option, words, need);
  take_one_each_time(option);
}

void add_arguments(CLI::App& command, const option_words& words, std::vector<std::string>& values,
                   option_need need) {
  describe(*command.add_option(words.names, values), words, need);
}

void add_flag_option(CLI::App& command, const std::string& names, const std::string& text,
                     bool& is_given) {
  command.add_flag(names, is_given, text);
}

void add_choice_option(CLI::App& command, const std::string& names, std::string& chosen,
                       const std::vector<std::string>& choices, const std::string& text,
                       option_need need) {
  CLI::Option& option = *command.add_option(names, chosen)->check(one_of(choices));
  describe(option, {names, joined_choices(choices), text}, need);
}

void add_choices_option(CLI::App& command, const std::string& names,
                        std::vector<std::string>& chosen, const std::vector<std::string>& choices,
                        const std::string& text) {
  CLI::Option& option = *command.add_option(names, chosen)->delimiter(',')->check(one_of(choices));
  describe(option, {names, joined_choices(choices), text}, option_need::optional);
  take_one_each_time(option);
}

// "Exit status: 0 good, ...", in lines that fit on a wide terminal.
static std::string exit_status_text() {
  constexpr size_t widest = 100;
  std::string text;
  std::string line = "Exit status:";
  for (const exit_status_row& row : exit_status_rows) {
    const std::string status = " " + std::to_string(row.status()) + " " + row.brief;
    if (line.size() + status.size() > widest) text += std::exchange(line, "\n ");
    line += status + (&row == &exit_status_rows.back() ? "." : ",");
  }
  return text + line;
}

std::string help_footer(const std::string& examples) {
  return (examples.empty() ? "" : "Examples:\n" + examples + "\n") + exit_status_text();
}

CLI::App& add_sub_command(CLI::App& command, const char* name, const char* summary,
                          const char* examples) {
  command.require_subcommand(1);
  CLI::App& added = *command.add_subcommand(name, summary);
  added.footer(help_footer(examples));
  return added;
}

bool is_given(const CLI::App& command) {
  return command.parsed();
}

static void choose_color(report_options& options, const std::string& choice) {
  options.color = is_color_wanted(choice, STDERR_FILENO);
  options.output_color = is_color_wanted(choice, STDOUT_FILENO);
}

void add_color_option(CLI::App& command, report_options& options) {
  const std::vector<std::string> choices = {"auto", "always", "never"};
  choose_color(options, "auto");
  command
      .add_option_function<std::string>(
          "--color", [&options](const std::string& c) { choose_color(options, c); },
          "Colors; auto, the default: on a terminal")
      ->check(one_of(choices))
      ->type_name(joined_choices(choices));
}

void add_quiet_option(CLI::App& command, report_options& options) {
  add_flag_option(command, "-q,--quiet", "No summary, only what is wrong", options.quiet);
}

void add_report_options(CLI::App& command, report_options& options,
                        const std::string& format_name) {
  const std::vector<std::string> choices = {"text", "json"};
  add_quiet_option(command, options);
  add_color_option(command, options);
  command
      .add_option_function<std::string>(
          format_name,
          [&options](const std::string& name) {
            options.format = name == "json" ? diagnostic_format::json : diagnostic_format::text;
          },
          "Diagnostics as text, or as one JSON object per line")
      ->check(one_of(choices))
      ->type_name(joined_choices(choices));
}

// --- Events and messages

void add_event_set_options(CLI::App& command, event_set_options& options, std::string& code_page) {
  add_text_option(command, {"--definitions", "FILE", "The compiled STD set"}, options.definitions,
                  option_need::required);
  add_message_options(command, options, code_page);
}

void add_message_options(CLI::App& command, event_set_options& options, std::string& code_page) {
  add_text_option(command, {"--aux", "FILE", "The compiled AUX set beside it"}, options.aux);
  add_text_option(command,
                  {"--catalog", "FOLDER",
                   "The message catalog; without it the messages are those of the definitions"},
                  options.catalog);
  add_text_option(command,
                  {"--locale", "LOCALE",
                   "The language of messages, as de_DE; that of the environment when not given"},
                  options.locale);
  add_text_option(command, {"--codepage", "NAME", "The code page of text; UTF-8 by default"},
                  code_page);
}

// --- Severities

struct severity_name_row {
  const char* name;
  rule_severity severity;
};

static constexpr std::array<severity_name_row, 3> severity_names = {{
    {"off", rule_severity::off},
    {"warning", rule_severity::warning},
    {"error", rule_severity::error},
}};

// What is an error for the library stays one.
static bool is_severity_free(diagnostic_rule rule) {
  return rule->kind == rule_kind::advice || rule->severity != rule_severity::error;
}

std::vector<std::string> severity_settings() {
  std::vector<std::string> settings;
  for (const diagnostic_rule rule : diagnostic_rules())
    for (const severity_name_row& known : severity_names)
      if (is_severity_free(rule)) settings.push_back(std::string(rule->code) + "=" + known.name);
  return settings;
}

void add_severity_option(CLI::App& command, std::vector<std::string>& settings) {
  add_texts_option(command,
                   {"--severity", severity_setting_form,
                    "How severe findings of a rule are: CODE=off, CODE=warning, CODE=error"},
                   settings);
}

static std::string unknown_rule(const std::string& code) {
  std::vector<std::string_view> codes;
  for (const diagnostic_rule rule : diagnostic_rules())
    if (is_severity_free(rule)) codes.emplace_back(rule->code);
  return "no rule " + in_quotes(code) + nearest_name_hint(code, codes);
}

// Takes "CODE=SEVERITY" over, or says why it is none.
static std::string set_severity(const std::string& text, diagnostic_list& found) {
  const size_t equals = std::min(text.find('='), text.size());
  const std::string code = text.substr(0, equals);
  const diagnostic_rule rule = rule_of_code(code);
  if (!rule) return unknown_rule(code);
  if (!is_severity_free(rule)) return "findings of " + in_quotes(code) + " are always errors";
  for (const severity_name_row& known : severity_names) {
    if (text.substr(equals) != std::string("=") + known.name) continue;
    found.set_severity(rule, known.severity);
    return "";
  }
  return code + "=off, " + code + "=warning or " + code + "=error is expected, not " +
         in_quotes(text);
}

void apply_severities(const std::vector<std::string>& settings, diagnostic_list& found) {
  for (const std::string& text : settings) {
    const std::string problem = set_severity(text, found);
    if (!problem.empty()) throw wrong_usage(problem);
  }
}

static constexpr size_t unknown_terminal_width = 80;

size_t terminal_line_width() {
  if (isatty(STDOUT_FILENO) == 0) return 0;
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
    return unknown_terminal_width;
  return size.ws_col;
}
