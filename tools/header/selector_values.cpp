#include "tools/header/selector_values.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "recording/definitions/types.h"
#include "tools/definitions/cpp_name.h"

// What a value of the selector attribute is called: by its message's name, or by its ID, which
// often begins with the event's name, or by its number.
static std::string selector_value_name(const event_model& event, const message_model& message) {
  if (message.name.is_given()) return message.name.value;
  std::string_view id = message.id.value;
  const std::string& name = event.name.value;
  const bool has_own_id =
      !id.empty() && id != name && id != name + "." + std::to_string(message.index.value);
  if (!has_own_id) return "value_" + std::to_string(message.value.value);
  const bool is_prefixed =
      id.starts_with(name) && (id[name.size()] == '.' || id[name.size()] == '_');
  if (is_prefixed && id.size() > name.size() + 1) id.remove_prefix(name.size() + 1);
  return std::string(id);
}

// The names that messages have of their own, which stay as they are.
static std::set<std::string> reserve_names(const event_model& event, cpp_identifiers& names) {
  std::set<std::string> reserved;
  for (const message_model& message : event.messages)
    if (message.name.is_given()) reserved.insert(names.of(message.name.value));
  return reserved;
}

bool is_enumerated(const event_model& event, const attribute_model& attribute) {
  return attribute.name.value == event.selector.value && !event.messages.empty() &&
         is_selecting_type(attribute.type);
}

selector_values selector_values_of(const event_model& event, const attribute_model& attribute) {
  cpp_identifiers names("");
  std::set<std::string> given = reserve_names(event, names);
  selector_values found{attribute.type, {}};
  for (const message_model& message : event.messages) {
    std::string name = selector_value_name(event, message);
    if (!message.name.is_given() && !given.insert(name).second)
      name += "_" + std::to_string(message.value.value);
    found.values.emplace_back(names.of(name), message.value.value);
  }
  return found;
}

bool selector_values::agrees_with(const selector_values& other) const {
  const auto sorted = [](auto list) {
    std::sort(list.begin(), list.end());
    return list;
  };
  return type == other.type && sorted(values) == sorted(other.values);
}
