#include "tools/command_table.h"

#include <array>
#include <cerrno>
#include <ostream>
#include <string>

#include "tools/command_catalog.h"
#include "tools/command_check.h"
#include "tools/command_compile.h"
#include "tools/command_diff.h"
#include "tools/command_dump.h"
#include "tools/command_generate.h"
#include "tools/command_header.h"
#include "tools/command_options.h"

static constexpr std::array command_rows = {
    &compile_command, &check_command,   &dump_command,       &diff_command,
    &header_command,  &catalog_command, &completion_command, &manual_command,
};

static constexpr const char* exit_status_help =
    "Exit status: 0 good, 1 faults found, 2 wrong usage, 3 a file cannot be read or written.";

kplog_command_line::kplog_command_line(const char* version)
    : app_("Define, compile and inspect log events", "kplog") {
  app_.set_version_flag("--version", std::string("kplog ") + version);
  app_.require_subcommand(1);
  app_.footer(exit_status_help);
  for (const kplog_command_row* row : command_rows) add(*row);
}

void kplog_command_line::add(const kplog_command_row& row) {
  CLI::App& command = *app_.add_subcommand(row.name, row.summary);
  if (row.is_hidden) command.group("");
  command.footer(std::string("Examples:\n") + row.examples + "\n" + exit_status_help);
  actions_.emplace_back(&command, row.describe(command));
}

command_outcome kplog_command_line::run(int argc, const char* const* argv, std::ostream& out,
                                        std::ostream& log) {
  try {
    app_.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app_.exit(error, out, log) == 0 ? command_outcome::good : command_outcome::usage;
  }
  for (const auto& [command, action] : actions_) {
    if (!command->parsed()) continue;
    const command_outcome outcome = action(out, log);
    return out.flush() ? outcome : write_error(log, {}, "standard output", errno);
  }
  return command_outcome::usage;
}
