// Definition sources: from YAML to the model. docs/definition-source.md describes the format.
#ifndef TOOLS_DEFINITION_SOURCE_H
#define TOOLS_DEFINITION_SOURCE_H

#include "tools/definition_model.h"
#include "tools/diagnostics.h"
#include "tools/source_text.h"

// Adds what one source states to the set. Diagnostics for keys, kinds, numbers, names and types,
// and for what contradicts an earlier source; whatever is sound is added all the same, so that one
// run finds as much as possible. A source that cannot be read to its end is read as far as it
// goes, and the set is not whole. The source must outlive the set and the diagnostics.
void read_definition_source(const source_text& source, definition_set& set, diagnostic_list& found);

#endif
