// The checks of a whole set, and what can be worked out only once all of it is known.
#ifndef TOOLS_SOURCE_COMPLETION_H
#define TOOLS_SOURCE_COMPLETION_H

#include "recording/definitions/merged_set.h"
#include "recording/definitions/model.h"
#include "recording/report/diagnostics.h"

// Checks IDs, names, counts, selectors and flags over the set; fills in flags, message IDs and
// templates. A set without a diagnostic can be written, and the library loads it.
//
// With an STD set the set is an AUX set: the attributes, flags and retired IDs of that set are
// known to it, and the library loads it beside that set.
void complete_definition_set(definition_set& set, diagnostic_list& found,
                             const std_definitions* standard = nullptr);

#endif
