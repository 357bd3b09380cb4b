// Which event of a set was which event of an earlier one.
#ifndef TOOLS_COMPARE_PAIRS_H
#define TOOLS_COMPARE_PAIRS_H

#include <vector>

#include "recording/definitions/model.h"

struct event_pair {
  const event_model* before = nullptr;  // null: the event is new
  const event_model* now = nullptr;     // null: the event is gone
};

// Every event of both sets once: those of `now` in their order, then those that are gone. An event
// is known by its ID and its name, then by its ID unless everything else differs, then by its name,
// then by having the same attributes and message.
std::vector<event_pair> pair_events(const definition_set& before, const definition_set& now);

#endif
