// Conditions as an engine is asked for them.
#ifndef TOOLS_SHIP_ASKED_RECORDS_H
#define TOOLS_SHIP_ASKED_RECORDS_H

#include <chrono>

#include "tools/find/conditions.h"
#include "tools/find/versions.h"
#include "tools/ship/archive_query.h"

// Machines and times alone, for which no definitions are needed. Raises std::invalid_argument for
// what is no time.
archive_query query_without_events(const find_options& options,
                                   std::chrono::system_clock::time_point now);

// The query for at least the records that fit with any of the versions: what cannot be said so is
// left out of it. Of an event that only `others` know, versions that senders had, the name counts
// that a record tells; so all of its records are asked for. Raises std::invalid_argument as
// record_conditions does.
archive_query query_of(const find_options& options, const definition_versions& versions,
                       const definition_versions& others,
                       std::chrono::system_clock::time_point now);

#endif
