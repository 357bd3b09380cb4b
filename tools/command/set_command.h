// What commands that work on a set of definitions have in common: the STD set beside it, and the
// file that is made of it.
#ifndef TOOLS_COMMAND_SET_COMMAND_H
#define TOOLS_COMMAND_SET_COMMAND_H

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "recording/definitions/merged_set.h"
#include "tools/command/options.h"
#include "tools/dump/load_set.h"
#include "tools/report/outcome.h"

// --- --std: the STD set that an AUX set is written for

// Adds the option; `path` stays empty when it is not given.
void add_standard_option(CLI::App& command, std::string& path);

// An STD set in memory, from a compiled file or a source.
class standard_input {
 public:
  // Nothing for an empty path. Raises wrong_usage, and command_ended when the file cannot be read
  // or is not sound; what is wrong with it goes to `log`.
  void read(const std::string& path, const report_options& report, std::ostream& log);

  // Null when there is no STD set.
  const std_definitions* definitions() const { return definitions_ ? &*definitions_ : nullptr; }

 private:
  definition_input input_;
  std::optional<std_definitions> definitions_;
};

// --- Commands that make one file of a set

struct definition_output_options {
  std::vector<std::string> inputs;  // "-": standard input
  std::string output;               // "-": standard output
  std::string standard;             // the STD set of an AUX set; empty: none
  bool is_merged = false;           // the output is both sets
  bool takes_compiled = false;      // an input may be a compiled file
  report_options report;
};

// Reads the STD set, if any, and the inputs, checked beside it. Raises wrong_usage when the output
// would replace an input, and command_ended, with everything said on `log`, when a file cannot be
// read or one of the sets has faults.
void read_definitions_to_output(const definition_output_options& options, standard_input& standard,
                                definition_input& input, std::ostream& log);

// Makes `bytes` the output, and says what it holds: "1 event". Raises file_error.
command_outcome write_definition_output(const definition_output_options& options,
                                        const std::string& bytes, const std::string& what,
                                        std::ostream& log);

#endif
