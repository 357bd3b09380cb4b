// The YAML that most definition sources consist of, read line by line.
#ifndef TOOLS_SOURCE_YAML_LINES_H
#define TOOLS_SOURCE_YAML_LINES_H

#include <yaml-cpp/eventhandler.h>

#include "recording/report/text_file.h"

// Tells the handler of the source's values, as the parser of yaml-cpp would, in a fraction of its
// time. False, with nothing told, where anything in the source is not of the simplest notation:
//   - blocks of maps and lists, indented by blanks, of which the outermost is a map
//   - maps and lists in braces and brackets that end in their line
//   - texts that end in their line, in double quotes without escapes or plain
//   - comments
// It may then hold anything, faults as well, and that parser is to read it.
bool read_yaml_lines(const text_file& source, YAML::EventHandler& handler);

#endif
