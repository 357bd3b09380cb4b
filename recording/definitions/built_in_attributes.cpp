#include "recording/definitions/built_in_attributes.h"

#include <utility>

#include "recording/definitions/model.h"
#include "recording/text/words.h"

std::string time_attribute_fault(std::string_view name, kp_AttributeType type) {
  if (type == TypeUnknown) return "";
  const std::string quoted = in_quotes(name);
  if (name == own_time_attribute && !is_time_attribute(type))
    return "every entry answers " + quoted + " with its own time, which is no " +
           short_type_name(type);
  for (const zone_attribute& zone : zone_attributes)
    if (name == zone.name && type != zone.type)
      return "every entry keeps the zone of its time in " + quoted + ", as a " +
             short_type_name(zone.type);
  return "";
}

void add_time_attribute_fault(const attribute_model& attribute, diagnostic_list& found) {
  std::string fault = time_attribute_fault(attribute.name.value, attribute.type);
  if (!fault.empty()) found.add("time-attribute"_rule, attribute.name.place, std::move(fault));
}
