// What a compiled definition file holds, for programs and for people.
#ifndef TOOLS_DUMP_TABLES_H
#define TOOLS_DUMP_TABLES_H

#include <string>

#include "recording/definitions/compiled_file.h"

// Everything that the file says, with offsets and the numbers that nobody interprets, as one
// object. Plain ASCII; a text that is not UTF-8 is {"hex": "..."}.
std::string definition_json(const definition_file& file);

// What the file has in one line, then the global attributes, then the events, a line for each, in
// columns. Texts are escaped for a terminal.
std::string definition_overview(const definition_file& file);

#endif
