// kplog compile: definition sources to a definition file.
#ifndef TOOLS_COMPILE_COMMAND_H
#define TOOLS_COMPILE_COMMAND_H

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/diagnostics.h"

// How a command ended, as its exit status.
enum class command_outcome : int {
  good = 0,
  findings = 1,   // the input has faults; diagnostics say which
  usage = 2,      // the command line is wrong
  file_error = 3  // a file cannot be read or written
};

struct compile_options {
  std::vector<std::string> sources;  // "-": standard input
  std::string output;                // "-": standard output
  bool quiet = false;                // only diagnostics and errors
  bool color = false;
  diagnostic_format format = diagnostic_format::text;
};

// Everything is checked before anything is written. Diagnostics and summary go to `log`.
command_outcome run_compile_command(const compile_options& options, std::ostream& log);

#endif
