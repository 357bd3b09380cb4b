#include "tools/command/command_table.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ostream>
#include <string>

#include "tools/command/command_line_error.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/report/outcome.h"

static constexpr std::array command_rows = {
    &compile_command, &check_command,   &dump_command,       &diff_command,
    &header_command,  &catalog_command, &emit_command,       &render_command,
    &count_command,   &help_command,    &completion_command, &manual_command,
};

kplog_command_line::kplog_command_line(const char* version)
    : app_("Define, compile and inspect log events", "kplog") {
  app_.set_version_flag("--version", std::string("kplog ") + version);
  app_.require_subcommand(1);
  app_.footer(help_footer(""));
  add_common_options();
  for (const kplog_command_row* row : command_rows) add(*row);
}

// Commands take them behind their names; here they are found for the help.
void kplog_command_line::add_common_options() {
  app_.add_flag("-q,--quiet")->description("As the command's option of this name");
  app_.add_option("--color", unused_, "As the command's option of this name")
      ->type_name("auto|always|never");
  app_.add_option("--format", unused_, "As the command's option of this name")->type_name("FORMAT");
}

static const CLI::App* command_of(const CLI::App& app, const std::string& name) {
  const auto commands =
      app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
  return commands.empty() ? nullptr : commands.front();
}

std::vector<std::string> kplog_command_line::with_options_behind_command(
    std::vector<std::string> words) const {
  size_t options = 0;
  while (options < words.size() && words[options].size() > 1 && words[options].front() == '-') {
    const std::string name = words[options].substr(0, words[options].find('='));
    const CLI::Option* const option = app_.get_option_no_throw(name);
    if (option == nullptr) break;
    const bool takes_next = option->get_items_expected_max() > 0 && name == words[options];
    options += takes_next ? 2 : 1;
  }
  size_t names = options;
  for (const CLI::App* command = &app_; names < words.size(); ++names) {
    command = command_of(*command, words[names]);
    if (command == nullptr) break;
  }
  if (names > options)
    std::rotate(words.begin(), words.begin() + static_cast<ptrdiff_t>(options),
                words.begin() + static_cast<ptrdiff_t>(names));
  return words;
}

void kplog_command_line::add(const kplog_command_row& row) {
  CLI::App& command = *app_.add_subcommand(row.name, row.summary);
  if (row.is_hidden) command.group("");
  command.footer(help_footer(row.examples));
  actions_.emplace_back(&command, row.describe(command));
}

// What could not be written is an error of every command.
static command_outcome flushed(command_outcome outcome, std::ostream& out, std::ostream& log) {
  return out.flush() ? outcome : write_error(log, {}, "standard output", errno);
}

command_outcome kplog_command_line::run(int argc, const char* const* argv, std::ostream& out,
                                        std::ostream& log) {
  try {
    std::vector<std::string> words =
        with_options_behind_command({argv + std::min(argc, 1), argv + argc});
    std::reverse(words.begin(), words.end());  // as the parser takes them
    app_.parse(std::move(words));
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) {
      log << command_line_error(app_, error);
      return command_outcome::usage;
    }
    app_.exit(error, out, log);
    return flushed(command_outcome::good, out, log);
  }
  for (const auto& [command, action] : actions_) {
    if (!command->parsed()) continue;
    return flushed(action(out, log), out, log);
  }
  return command_outcome::usage;
}
