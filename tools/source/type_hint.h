// What to say of a name that is no attribute's type.
#ifndef TOOLS_SOURCE_TYPE_HINT_H
#define TOOLS_SOURCE_TYPE_HINT_H

#include <string>
#include <string_view>
#include <vector>

// Behind "; ": what to use for a type of another language, the nearest name, or else all of them.
std::string type_hint(const std::string& name);

// With commas between them.
std::string listed(const std::vector<std::string_view>& names);

#endif
