#include "tools/command/command_line_error.h"

#include <CLI/CLI.hpp>
#include <vector>

#include "recording/text/terminal_text.h"
#include "recording/text/words.h"
#include "tools/command/description.h"

// The last of the commands that were given, with its name as people write it.
struct given_command {
  const CLI::App* app;
  std::string name;
};

static given_command last_given_command(const CLI::App& kplog) {
  given_command command = {&kplog, kplog.get_name()};
  for (auto parsed = kplog.get_subcommands(); !parsed.empty();
       parsed = command.app->get_subcommands()) {
    command.app = parsed.front();
    command.name += ' ' + command.app->get_name();
  }
  return command;
}

static std::string in_quotes(const std::string& word) {
  return '"' + terminal_text(word) + '"';
}

static bool is_option(const std::string& word) {
  return word.size() > 1 && word.front() == '-';
}

static std::string unknown_option(const given_command& command, const std::string& word) {
  const std::string name = word.substr(0, word.find('='));
  const command_description description = describe_command_line(*command.app);
  std::vector<std::string_view> names;
  for (const option_description& option : description.options)
    if (!option.is_positional) names.insert(names.end(), option.names.begin(), option.names.end());
  return command.name + " has no option " + in_quotes(name) + nearest_name_hint(name, names);
}

static std::string unknown_word(const given_command& command, const std::string& word) {
  if (is_option(word)) return unknown_option(command, word);
  const command_description description = describe_command_line(*command.app);
  if (description.commands.empty()) return command.name + " takes nothing more: " + in_quotes(word);
  std::vector<std::string_view> names;
  for (const command_description& one : description.commands) names.push_back(one.path.back());
  return command.name + " has no command " + in_quotes(word) + nearest_name_hint(word, names);
}

static std::string missing_command(const given_command& command) {
  std::string text = command.name + " needs a command:";
  for (const command_description& one : describe_command_line(*command.app).commands)
    text += ' ' + one.path.back();
  return text;
}

std::string command_line_error(const CLI::App& kplog, const CLI::ParseError& error) {
  const given_command command = last_given_command(kplog);
  const std::vector<std::string> unknown = kplog.remaining(true);
  const bool is_command_missing =
      command.app->get_require_subcommand_min() > 0 && command.app->get_subcommands().empty();
  const std::string text = !unknown.empty()     ? unknown_word(command, unknown.front())
                           : is_command_missing ? missing_command(command)
                                                : terminal_text(error.what());
  return "kplog: " + text + "\nTry '" + command.name + " --help'.\n";
}
