// The command line of kplog: its commands, what they take, and what a wrong one is answered with.
#ifndef TOOLS_COMMAND_COMMAND_LINE_H
#define TOOLS_COMMAND_COMMAND_LINE_H

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "tools/report/outcome.h"

namespace CLI {
class App;
}

// --- The command line as data: what completion scripts and manual pages are written from

struct option_description {
  std::vector<std::string> names;  // "-o", "--output"; of a positional argument what it is called
  bool is_positional = false;
  bool is_required = false;
  bool is_repeatable = false;
  bool is_list = false;             // takes several values with commas between them
  std::string value;                // what it takes: "FILE", "FOLDER", "text|json"; empty: nothing
  std::vector<std::string> offers;  // values that completion offers; empty: it knows none
  std::string text;                 // a line that explains it

  std::vector<std::string> choices() const;  // of the value; empty when it is no choice
};

struct command_description {
  std::vector<std::string> path;  // "catalog", "build"; empty: kplog itself
  std::string text;               // a line that explains it
  std::string examples;           // command lines, one below the other, without indentation
  std::vector<option_description> options;    // in the order of the help
  std::vector<command_description> commands;  // those that the help shows

  std::string name(const char* separator) const;  // "kplog catalog build", with blanks between
};

// The command and all below it, each before those below it.
std::vector<const command_description*> all_commands(const command_description& command);

// All of kplog, seen from one of its commands.
command_description whole_command_line(const CLI::App& command);
// What --version says behind "kplog ".
std::string version_of_command_line(const CLI::App& command);

// --- The command line as it is parsed and run

class kplog_command_line {
 public:
  // `version` is what --version says behind "kplog ".
  explicit kplog_command_line(const char* version);
  ~kplog_command_line();

  // Parses, and runs the command that was given. What the parser says goes to `out` and `log` too.
  command_outcome run(int argc, const char* const* argv, std::ostream& out, std::ostream& log);

  command_description description() const;

 private:
  struct parser;

  std::unique_ptr<parser> parser_;
};

#endif
