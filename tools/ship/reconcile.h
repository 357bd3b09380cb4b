// What a machine's counter file, its journal and an engine tell of the same records.
#ifndef TOOLS_SHIP_RECONCILE_H
#define TOOLS_SHIP_RECONCILE_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/ship/engine.h"

struct told_counts {
  day_counts engine;
  day_counts journal;
  std::set<std::string> whole_days;    // of which the journal has all segments
  std::optional<day_counts> counters;  // nothing: there is no counter file
};

struct count_difference {
  day_event key;
  std::optional<uint64_t> counted = {};  // where there is a counter file
  std::optional<uint64_t> journal = {};  // where it has all of the day, or more than the engine
  uint64_t engine = 0;
};

// The days and events, in their order, of which not all tell the same. A journal from which
// segments of a day were removed may tell less; lost events are not counted by counter files.
std::vector<count_difference> differences_of(const told_counts& told);

// "120 counted, 120 in the journal, 118 in the engine"
std::string text_of(const count_difference& difference);

#endif
