// What generated headers call the values of a selector attribute.
#ifndef TOOLS_HEADER_SELECTOR_VALUES_H
#define TOOLS_HEADER_SELECTOR_VALUES_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "recording/definitions/model.h"

// Whether the attribute chooses among messages of the event, by values that can have names.
bool is_enumerated(const event_model& event, const attribute_model& attribute);

// Names, as C++ has them, and the values that they are of, in the order of their messages.
struct selector_values {
  kp_AttributeType type = TypeUnknown;
  std::vector<std::pair<std::string, uint32_t>> values;

  bool agrees_with(const selector_values& other) const;  // whatever the order is
};

// Those of an attribute that is enumerated. No two have one name.
selector_values selector_values_of(const event_model& event, const attribute_model& attribute);

#endif
