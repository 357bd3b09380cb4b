// Values of JSON that are no objects and no arrays, as a line has them.
#ifndef RECORDING_RECORDS_SCALAR_H
#define RECORDING_RECORDS_SCALAR_H

#include <optional>
#include <string_view>

#include "recording/records/parser.h"

// What a token without quotes is; nothing for what is no scalar.
std::optional<record_value_kind> scalar_kind(std::string_view token);

std::string_view without_blanks_behind(std::string_view token);

#endif
