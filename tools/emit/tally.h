// What became of records.
#ifndef TOOLS_EMIT_TALLY_H
#define TOOLS_EMIT_TALLY_H

#include <cstdint>
#include <unordered_map>

#include "recording/records/event_set.h"

// Every record is one of these, or waits to be written.
struct emit_tally {
  uint64_t read = 0;
  uint64_t written = 0;   // to every output
  uint64_t rejected = 0;  // by the filter
  uint64_t bad = 0;       // refused

  uint64_t unwritten() const { return read - written - rejected - bad; }
};

// By event; null stands for events that are not known.
using emit_tallies = std::unordered_map<const known_event*, emit_tally>;

emit_tally total_of(const emit_tallies& tallies);

#endif
