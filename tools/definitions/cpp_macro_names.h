// The names that the system's headers take from every program.
#ifndef TOOLS_DEFINITIONS_CPP_MACRO_NAMES_H
#define TOOLS_DEFINITIONS_CPP_MACRO_NAMES_H

#include <string_view>

// Whether a header of C, C++ or POSIX defines a macro of this name, so that a program which
// includes it can call nothing by the name.
bool is_system_macro(std::string_view name);

#endif
