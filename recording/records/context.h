// What a sender adds to a record of its own: an object of JSON, of which kplog knows nothing
// (docs/records.md).
#ifndef RECORDING_RECORDS_CONTEXT_H
#define RECORDING_RECORDS_CONTEXT_H

#include <simdjson.h>

#include <cstddef>

#include "recording/text/line_writer.h"

// Bytes from its { to its }, without blanks between its parts, and without escapes that JSON does
// not need: the same however it is written.
constexpr size_t record_context_limit = 4096;
constexpr size_t record_context_depth = 64;  // objects and arrays in each other, itself included

// Appends the object without blanks: keys and numbers as they are, texts escaped as those of the
// stored form. Null, or why it is no context, in a text that lives on. Raises
// simdjson::simdjson_error for what is no JSON.
const char* append_record_context(simdjson::ondemand::object object, line_writer& line);

#endif
