// The commands of kplog, a file for each; tools/command/command_line.cpp lists them.
#ifndef TOOLS_COMMAND_COMMANDS_H
#define TOOLS_COMMAND_COMMANDS_H

#include <functional>
#include <iosfwd>

#include "tools/report/outcome.h"

namespace CLI {
class App;
}

// Runs a command whose options have been parsed: results go to `out`, diagnostics and summaries to
// `log`.
using command_action = std::function<command_outcome(std::ostream& out, std::ostream& log)>;

// A command: how it is described, and what it runs.
struct kplog_command_row {
  const char* name;
  const char* summary;   // one line, without a full stop
  const char* examples;  // command lines with their explanations, two blanks before each
  // Adds the options to the sub-command, and returns what runs once they are parsed. The action
  // owns the options. Commands of a command (`kplog catalog build`) are sub-commands added here.
  command_action (*describe)(CLI::App& command);
  bool is_hidden = false;  // left out of the help: for packagers and build scripts
};

// kplog compile: definition sources to a definition file.
extern const kplog_command_row compile_command;
// kplog check: what is wrong with definitions, and what is probably not meant.
extern const kplog_command_row check_command;
// kplog dump: what a compiled definition file says.
extern const kplog_command_row dump_command;
// kplog diff: what changed between two sets, and whom it breaks.
extern const kplog_command_row diff_command;
// kplog header: a C++ header with typed classes for the events of a set.
extern const kplog_command_row header_command;
// kplog catalog: translations of messages, from the sources to ICU's bundles.
extern const kplog_command_row catalog_command;
// kplog emit: records become entries, messages, logs and counts.
extern const kplog_command_row emit_command;
// kplog send: records to a service, until they are acknowledged.
extern const kplog_command_row send_command;
// kplog status: how a running service is.
extern const kplog_command_row status_command;
// kplog render: stored records as messages.
extern const kplog_command_row render_command;
// kplog ship: a journal's records to an engine.
extern const kplog_command_row ship_command;
// kplog fleet: what an engine has of all machines.
extern const kplog_command_row fleet_command;
// kplog recover: what recorders that died left behind, into their outputs.
extern const kplog_command_row recover_command;
// kplog count: what counter files hold.
extern const kplog_command_row count_command;
// kplog help: the help of a command, as its option --help gives it.
extern const kplog_command_row help_command;
// kplog completion and kplog manual: what packages install beside the program.
extern const kplog_command_row completion_command;
extern const kplog_command_row manual_command;

#endif
