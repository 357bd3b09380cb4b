// A compiled definition file as JSON.
#ifndef TOOLS_DUMP_TABLES_H
#define TOOLS_DUMP_TABLES_H

#include <string>

#include "recording/definitions/reader.h"

// Everything that the file says, with offsets and the numbers that nobody interprets, as one
// object. Plain ASCII; a text that is not UTF-8 is {"hex": "..."}.
std::string definition_json(const definition_file& file);

#endif
