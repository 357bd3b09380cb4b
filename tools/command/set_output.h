// What commands that make one file of definitions have in common: their paths, and what happens
// before anything is written.
#ifndef TOOLS_COMMAND_SET_OUTPUT_H
#define TOOLS_COMMAND_SET_OUTPUT_H

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/command/standard_option.h"
#include "tools/dump/load_set.h"
#include "tools/report/outcome.h"

struct definition_output_options {
  std::vector<std::string> inputs;  // "-": standard input
  std::string output;               // "-": standard output
  std::string standard;             // the STD set of an AUX set; empty: none
  bool is_merged = false;           // the output is both sets
  bool takes_compiled = false;      // an input may be a compiled file
  report_options report;
};

// Reads the STD set, if any, and the inputs, checked beside it. Otherwise than good, with
// everything said on `log`, when the output would replace an input, a file cannot be read, or one
// of the sets has faults.
command_outcome read_definitions_to_output(const definition_output_options& options,
                                           standard_input& standard, definition_input& input,
                                           std::ostream& log);

// Makes `bytes` the output, and says what it holds: "1 event".
command_outcome write_definition_output(const definition_output_options& options,
                                        const std::string& bytes, const std::string& what,
                                        std::ostream& log);

#endif
