// A compiled definition file as a table for people.
#ifndef TOOLS_DUMP_OVERVIEW_H
#define TOOLS_DUMP_OVERVIEW_H

#include <string>

#include "recording/definitions/reader.h"

// What the file has in one line, then the global attributes, then the events, a line for each, in
// columns. Texts are escaped for a terminal.
std::string definition_overview(const definition_file& file);

#endif
