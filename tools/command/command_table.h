// All commands of kplog, and the command line that they make up.
#ifndef TOOLS_COMMAND_COMMAND_TABLE_H
#define TOOLS_COMMAND_COMMAND_TABLE_H

#include <CLI/CLI.hpp>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "tools/command/command.h"
#include "tools/report/outcome.h"

class kplog_command_line {
 public:
  // `version` is what --version says behind "kplog ".
  explicit kplog_command_line(const char* version);

  // Parses, and runs the command that was given. What the parser says goes to `out` and `log` too.
  command_outcome run(int argc, const char* const* argv, std::ostream& out, std::ostream& log);

  const CLI::App& app() const { return app_; }

 private:
  void add(const kplog_command_row& row);
  void add_common_options();
  // The words with the options that stand before the command moved behind its name.
  std::vector<std::string> with_options_behind_command(std::vector<std::string> words) const;

  CLI::App app_;
  std::string unused_;  // the value of an option that no command came to take
  std::vector<std::pair<const CLI::App*, command_action>> actions_;
};

#endif
