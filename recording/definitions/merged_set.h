// An AUX set and the STD set that it adds to as one, merged as the library merges their files.
#ifndef RECORDING_DEFINITIONS_MERGED_SET_H
#define RECORDING_DEFINITIONS_MERGED_SET_H

#include "recording/definitions/model.h"
#include "recording/definitions/standard_set.h"

// The STD set's events in their order, with what `set` adds to each, and then the events that `set`
// alone has. Of an event of both: the attributes and selector messages of both; the AUX event's
// second word; its property flags where the STD event has none; its default message where that has
// both an ID and a template. An event that `set` alone has keeps its default message as it
// is, also an ID alone, which the library drops from an AUX file. The log version is the STD set's,
// where the library gives every event that of the last file it is in. Both sets are complete and go
// together (check_against_std).
definition_set merged_set(const std_definitions& standard, const definition_set& set);

#endif
