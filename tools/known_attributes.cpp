#include "tools/known_attributes.h"

#include <string>

#include "logging/logentry_i.h"

std::vector<const std::vector<attribute_model>*> known_attributes::lists(
    const event_model& event) const {
  std::vector<const std::vector<attribute_model>*> known = {&event.attributes};
  if (const event_model* standard = standard_event(event)) known.push_back(&standard->attributes);
  known.push_back(&set_.globals);
  if (standard_ != nullptr) known.push_back(&standard_->set().globals);
  return known;
}

kp_AttributeType known_attributes::type_of(const event_model& event, std::string_view name) const {
  kp_AttributeType type = TypeUnknown;
  return is_default_info_fields(std::string(name).c_str(), type) ? type
                                                                 : declared_type(event, name);
}

kp_AttributeType known_attributes::declared_type(const event_model& event,
                                                 std::string_view name) const {
  for (const std::vector<attribute_model>* attributes : lists(event))
    if (const attribute_model* attribute = find_attribute(*attributes, name))
      return attribute->type;
  return TypeUnknown;
}

std::vector<std::string_view> known_attributes::names(const event_model& event) const {
  std::vector<std::string_view> names = {"TIMESTAMP"};
  for (const std::vector<attribute_model>* attributes : lists(event))
    for (const attribute_model& attribute : *attributes) names.push_back(attribute.name.value);
  return names;
}

const attribute_model* known_attributes::selector(const event_model& event) const {
  const attribute_model* const own = selector_of(event);
  const event_model* const standard = standard_event(event);
  if (own != nullptr || standard == nullptr) return own;
  const attribute_model* const selector = selector_of(*standard);
  const bool is_meant = selector != nullptr && (!event.selector.is_given() ||
                                                event.selector.value == selector->name.value);
  return is_meant ? selector : nullptr;
}
