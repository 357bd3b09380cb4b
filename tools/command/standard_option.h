// The option --std: the STD set that an AUX set is written for.
#ifndef TOOLS_COMMAND_STANDARD_OPTION_H
#define TOOLS_COMMAND_STANDARD_OPTION_H

#include <iosfwd>
#include <optional>
#include <string>

#include "recording/definitions/standard_set.h"
#include "tools/command/options.h"
#include "tools/dump/load_set.h"
#include "tools/report/outcome.h"

// Adds the option; `path` stays empty when it is not given.
void add_standard_option(CLI::App& command, std::string& path);

// An STD set in memory, from a compiled file or a source.
class standard_input {
 public:
  // Nothing for an empty path. Otherwise than good when the file cannot be read or is not sound;
  // what is wrong with it goes to `log`.
  command_outcome read(const std::string& path, const report_options& report, std::ostream& log);

  // Null when there is no STD set.
  const std_definitions* definitions() const { return definitions_ ? &*definitions_ : nullptr; }

 private:
  definition_input input_;
  std::optional<std_definitions> definitions_;
};

#endif
