// Objects of JSON that end with a check sum over all before it: "sum".
#ifndef RECORDING_TEXT_SUMMED_JSON_H
#define RECORDING_TEXT_SUMMED_JSON_H

#include <optional>
#include <string>
#include <string_view>

// The object, whose last bracket is not there yet, as a whole line.
std::string summed_object(std::string open_object);

// The object without its sum, where that is right; nothing for any other text.
std::optional<std::string> unsummed_object(std::string_view line);

#endif
