// The command line as data: what completion scripts and manual pages are written from.
#ifndef TOOLS_COMMAND_DESCRIPTION_H
#define TOOLS_COMMAND_DESCRIPTION_H

#include <string>
#include <vector>

namespace CLI {
class App;
}

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

// `app` is a command or the whole of them; `path` is how it is reached.
command_description describe_command_line(const CLI::App& app,
                                          const std::vector<std::string>& path = {});

// The command and all below it, each before those below it.
std::vector<const command_description*> all_commands(const command_description& command);

#endif
