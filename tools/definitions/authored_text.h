// The way back from a template to the text that it was made of.
#ifndef TOOLS_DEFINITIONS_AUTHORED_TEXT_H
#define TOOLS_DEFINITIONS_AUTHORED_TEXT_H

#include <optional>
#include <string>
#include <string_view>

#include "recording/definitions/template.h"

// The authored text of which template_from_text, for ICU, makes exactly this template; nothing when
// there is none, as for most templates written by hand.
std::optional<std::string> authored_text_of(std::string_view bytes,
                                            const attribute_type_of& type_of);

#endif
