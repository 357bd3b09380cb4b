// The STD set that an AUX set is loaded beside, and what the library refuses of the two together.
#ifndef RECORDING_DEFINITIONS_STANDARD_SET_H
#define RECORDING_DEFINITIONS_STANDARD_SET_H

#include <string_view>
#include <unordered_map>

#include "recording/definitions/model.h"
#include "recording/report/diagnostics.h"

class std_definitions {
 public:
  // The set is complete, and outlives this.
  explicit std_definitions(const definition_set& set);

  const definition_set& set() const { return set_; }
  // The event that one of this ID is merged into, null when there is none.
  const event_model* find(uint32_t id) const;

 private:
  const definition_set& set_;
  std::unordered_map<uint32_t, const event_model*> events_;
};

// The attribute of that name, null when there is none.
const attribute_model* find_attribute(const std::vector<attribute_model>& attributes,
                                      std::string_view name);

// The attribute that selects the event's messages, null when there is none: the library knows a
// selector only by its declaration.
const attribute_model* selector_of(const event_model& event);

// Adds everything for which the library would refuse to load `set` beside `standard`.
void check_against_std(const definition_set& set, const std_definitions& standard,
                       diagnostic_list& found);

#endif
