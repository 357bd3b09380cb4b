// What the commands of kplog have in common: how one is described, what it runs, how it ends.
#ifndef TOOLS_COMMAND_H
#define TOOLS_COMMAND_H

#include <array>
#include <functional>
#include <iosfwd>

namespace CLI {
class App;
}

// How a command ended, as its exit status.
enum class command_outcome : int {
  good = 0,
  findings = 1,
  usage = 2,
  file_error = 3,
  interrupted = 130,
  terminated = 143
};

// What an exit status means, as the help, the manual pages and docs/tools.md say it.
struct exit_status_row {
  command_outcome outcome;
  const char* brief;
  const char* meaning;

  int status() const { return static_cast<int>(outcome); }
};

constexpr auto exit_status_rows = std::to_array<exit_status_row>({
    {command_outcome::good, "good", "good"},
    {command_outcome::findings, "faults found", "the input has faults; diagnostics say which"},
    {command_outcome::usage, "wrong usage", "the command line is wrong"},
    {command_outcome::file_error, "a file cannot be read or written",
     "a file cannot be read or written, or memory ran out"},
    {command_outcome::interrupted, "SIGINT before the end of the input",
     "SIGINT came before the files or standard input of `kplog emit` had ended"},
    {command_outcome::terminated, "SIGTERM before the end of the input",
     "SIGTERM came before the files or standard input of `kplog emit` had ended"},
});

// Runs a command whose options have been parsed: results go to `out`, diagnostics and summaries to
// `log`.
using command_action = std::function<command_outcome(std::ostream& out, std::ostream& log)>;

// A command; tools/command_table.cpp lists them all.
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
