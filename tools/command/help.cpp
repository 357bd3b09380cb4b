#include <CLI/CLI.hpp>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/report/outcome.h"

static std::vector<const CLI::App*> shown_commands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

static command_outcome no_command(const CLI::App& app, const std::string& word, std::ostream& log) {
  std::vector<std::string_view> names;
  for (const CLI::App* command : shown_commands(app)) names.push_back(command->get_name());
  return usage_error(log, "no command \"" + word + "\"" + nearest_name_hint(word, names));
}

static command_outcome help(const CLI::App& kplog, const std::vector<std::string>& words,
                            std::ostream& out, std::ostream& log) {
  const CLI::App* command = &kplog;
  std::string name = kplog.get_name();
  for (const std::string& word : words) {
    const auto found = command->get_subcommands(
        [&](const CLI::App* candidate) { return candidate->get_name() == word; });
    if (found.empty()) return no_command(*command, word, log);
    command = found.front();
    name += " " + word;
  }
  out << command->get_formatter()->make_help(command, name, CLI::AppFormatMode::Normal);
  return command_outcome::good;
}

// The commands that the table lists before this one.
static std::string command_choices(const CLI::App& kplog) {
  std::string choices;
  for (const CLI::App* command : shown_commands(kplog))
    choices += (choices.empty() ? "" : "|") + command->get_name();
  return choices;
}

static command_action describe_help(CLI::App& command) {
  const auto words = std::make_shared<std::vector<std::string>>();
  add_arguments(command,
                {"COMMAND", command_choices(*command.get_parent()),
                 "A command, and one of its own commands; none: all of kplog"},
                *words, option_need::optional);
  return [words, &command](std::ostream& out, std::ostream& log) {
    return help(*command.get_parent(), *words, out, log);
  };
}

constexpr kplog_command_row help_command = {"help", "Explain a command, as its option --help does",
                                            "  kplog help\n"
                                            "  kplog help compile\n"
                                            "  kplog help catalog build\n",
                                            describe_help};
