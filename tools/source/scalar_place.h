// Places within the scalars of a YAML source.
#ifndef TOOLS_SOURCE_SCALAR_PLACE_H
#define TOOLS_SOURCE_SCALAR_PLACE_H

#include <string_view>

#include "recording/report/text_file.h"

// The place of byte `offset` of a scalar's value, where `scalar` is the place at which the scalar
// begins: looks through quotes, escapes, the indentation of blocks, and lines that are folded into
// one. The scalar's own place where its notation does not account for the value.
text_place place_in_scalar(const text_place& scalar, std::string_view value, size_t offset);

// Whether a scalar that begins with a quote has its partner. True for other scalars.
bool is_quote_closed(const text_place& scalar);

#endif
