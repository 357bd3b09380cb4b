// The bytes of compiled definition files. docs/definition-format.md describes the layout.
#ifndef TOOLS_COMPILED_WRITER_H
#define TOOLS_COMPILED_WRITER_H

#include <string>

#include "recording/definitions/model.h"

// The file of a set that complete_definition_set found nothing against: header, global attributes,
// mapping table, entry records, all in the order of the sources; fields without meaning are 0. The
// same set gives the same bytes. Raises std::length_error when offsets would pass 32 bits.
std::string definition_file_bytes(const definition_set& set);

#endif
