#include "recording/definitions/known_attributes.h"

#include <string>

#include "recording/definitions/built_in_attributes.h"
#include "recording/definitions/template.h"

std::vector<const std::vector<attribute_model>*> known_attributes::lists(
    const event_model& event) const {
  std::vector<const std::vector<attribute_model>*> known = {&event.attributes};
  if (const event_model* standard = standard_event(event)) known.push_back(&standard->attributes);
  known.push_back(&set_.globals);
  if (standard_ != nullptr) known.push_back(&standard_->set().globals);
  return known;
}

const attribute_model* known_attributes::declared(const event_model& event,
                                                  std::string_view name) const {
  for (const std::vector<attribute_model>* attributes : lists(event))
    if (const attribute_model* attribute = find_attribute(*attributes, name)) return attribute;
  return nullptr;
}

kp_AttributeType known_attributes::type_of(const event_model& event, std::string_view name) const {
  if (name == own_time_attribute) return TypeTimestamp;
  const attribute_model* const attribute = declared(event, name);
  if (attribute == nullptr) return TypeUnknown;
  const bool is_shown = !is_shown_as_mbchar(name) || is_unicode_string_attribute(attribute->type);
  return is_shown ? attribute->type : TypeUnknown;
}

kp_AttributeType known_attributes::declared_type(const event_model& event,
                                                 std::string_view name) const {
  const attribute_model* const attribute = declared(event, name);
  return attribute == nullptr ? TypeUnknown : attribute->type;
}

std::vector<std::string_view> known_attributes::names(const event_model& event) const {
  std::vector<std::string_view> names = {own_time_attribute};
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
