// What keeps a line from being a record at all, with the exact place.
#ifndef TOOLS_RECORD_SYNTAX_H
#define TOOLS_RECORD_SYNTAX_H

#include <string_view>

// Raises record_error for a line above its limit.
void require_record_size(std::string_view line);

// Raises record_error for a line that could not be read as a JSON object: the first fault in it.
[[noreturn]] void raise_record_syntax(std::string_view line);

#endif
