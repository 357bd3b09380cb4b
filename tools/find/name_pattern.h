// Names as people point at several of them: "USER_*", "LINK_?P".
#ifndef TOOLS_FIND_NAME_PATTERN_H
#define TOOLS_FIND_NAME_PATTERN_H

#include <string_view>

// Whether the whole text fits: "*" stands for any characters, also none, and "?" for one. Takes no
// longer than the two lengths multiplied.
bool fits_name_pattern(std::string_view text, std::string_view pattern);

// Whether it has one of these two.
bool is_name_pattern(std::string_view text);

#endif
