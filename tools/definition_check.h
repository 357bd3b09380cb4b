// The checks of a whole set, and what can be worked out only once all of it is known.
#ifndef TOOLS_DEFINITION_CHECK_H
#define TOOLS_DEFINITION_CHECK_H

#include "tools/definition_model.h"
#include "tools/diagnostics.h"

// Checks IDs, names, counts, selectors and flags over the set; fills in flags, message IDs and
// templates. A set without a diagnostic can be written, and the library loads it.
void complete_definition_set(definition_set& set, diagnostic_list& found);

#endif
