// What the commands of kplog have in common: how one is described, and what it runs.
#ifndef TOOLS_COMMAND_COMMAND_H
#define TOOLS_COMMAND_COMMAND_H

#include <functional>
#include <iosfwd>

#include "tools/report/outcome.h"

namespace CLI {
class App;
}

// Runs a command whose options have been parsed: results go to `out`, diagnostics and summaries to
// `log`.
using command_action = std::function<command_outcome(std::ostream& out, std::ostream& log)>;

// A command; tools/command/command_table.cpp lists them all.
struct kplog_command_row {
  const char* name;
  const char* summary;   // one line, without a full stop
  const char* examples;  // command lines with their explanations, two blanks before each
  // Adds the options to the sub-command, and returns what runs once they are parsed. The action
  // owns the options. Commands of a command (`kplog catalog build`) are sub-commands added here.
  command_action (*describe)(CLI::App& command);
  bool is_hidden = false;  // left out of the help: for packagers and build scripts
};

#endif
