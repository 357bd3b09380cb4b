// Definition sources: from YAML to the model. docs/definition-source.md describes the format.
#ifndef TOOLS_SOURCE_READER_H
#define TOOLS_SOURCE_READER_H

#include "recording/definitions/model.h"
#include "recording/report/diagnostics.h"
#include "recording/report/text_file.h"

// Adds what one source states to the set. Diagnostics for keys, kinds, numbers, names and types,
// and for what contradicts an earlier source; whatever is sound is added all the same, so that one
// run finds as much as possible. A source that cannot be read to its end is read as far as it
// goes, and the set is not whole. The source must outlive the set and the diagnostics.
void read_definition_source(const text_file& source, definition_set& set, diagnostic_list& found);

#endif
