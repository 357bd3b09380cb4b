// All commands of kplog, and the command line that they make up.
#ifndef TOOLS_COMMAND_TABLE_H
#define TOOLS_COMMAND_TABLE_H

#include <CLI/CLI.hpp>
#include <iosfwd>
#include <utility>
#include <vector>

#include "tools/command.h"

class kplog_command_line {
 public:
  // `version` is what --version says behind "kplog ".
  explicit kplog_command_line(const char* version);

  // Parses, and runs the command that was given. What the parser says goes to `out` and `log` too.
  command_outcome run(int argc, const char* const* argv, std::ostream& out, std::ostream& log);

  const CLI::App& app() const { return app_; }

 private:
  void add(const kplog_command_row& row);

  CLI::App app_;
  std::vector<std::pair<const CLI::App*, command_action>> actions_;
};

#endif
