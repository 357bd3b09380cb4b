// C++ headers of definition sets: constants, and classes for each event.
#ifndef TOOLS_HEADER_EVENT_HEADER_H
#define TOOLS_HEADER_EVENT_HEADER_H

#include <string>

#include "recording/definitions/model.h"

// What a header holds: everything, or the constants alone.
enum class header_content { classes, ids };

// The header of a set that nothing was found against. Everything in it stands in `name_space`
// ("a" or "a::b"), which also makes the include guard. The first comment names the set's sources,
// without their folders. The same set gives the same text.
std::string event_header_text(const definition_set& set, const std::string& name_space,
                              header_content content);

#endif
