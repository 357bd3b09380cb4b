// What keeps a line from being a record at all, with the exact place.
#ifndef RECORDING_RECORDS_SYNTAX_H
#define RECORDING_RECORDS_SYNTAX_H

#include <string_view>

#include "recording/records/parser.h"

// Raises record_error for a line above its limit.
void require_record_size(std::string_view line);

// Why a line could not be read as a JSON object: the first fault in it.
record_error record_syntax_error(std::string_view line);

#endif
