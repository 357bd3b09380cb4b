#include "recording/definitions/merged_set.h"

#include <algorithm>
#include <unordered_map>

// As the library keeps attributes: one that is declared again moves to the end.
static void declare(std::vector<attribute_model>& attributes, const attribute_model& added) {
  const auto held = std::find_if(attributes.begin(), attributes.end(),
                                 [&](const auto& a) { return a.name.value == added.name.value; });
  if (held != attributes.end()) attributes.erase(held);
  attributes.push_back(added);
}

static bool is_whole_message(const message_model& message) {
  return !message.id.value.empty() && !message.template_bytes.empty();
}

// A selector without its declaration selects nothing, also when the other set declares an attribute
// of that name.
static event_model alone(const event_model& event) {
  event_model merged = event;
  merged.attributes.clear();
  for (const attribute_model& attribute : event.attributes) declare(merged.attributes, attribute);
  if (selector_of(merged) == nullptr) merged.selector = {};
  return merged;
}

static void add_event(event_model& merged, const event_model& added) {
  for (const attribute_model& attribute : added.attributes) declare(merged.attributes, attribute);
  if (selector_of(added) != nullptr) merged.selector = added.selector;
  merged.messages.insert(merged.messages.end(), added.messages.begin(), added.messages.end());
  merged.second_word = added.second_word;
  if (merged.flags == 0) merged.flags = added.flags;
  if (is_whole_message(added.message)) merged.message = added.message;
}

definition_set merged_set(const std_definitions& standard, const definition_set& set) {
  definition_set merged = standard.set();
  merged.events.clear();
  std::unordered_map<uint32_t, const event_model*> left;  // of the AUX set
  for (const event_model& event : set.events) left.emplace(event.id.value, &event);
  for (const event_model& event : standard.set().events) {
    merged.events.push_back(alone(event));
    const auto added = left.find(event.id.value);
    if (added == left.end()) continue;
    add_event(merged.events.back(), *added->second);
    left.erase(added);
  }
  for (const event_model& event : set.events)
    if (left.count(event.id.value) != 0) merged.events.push_back(alone(event));
  for (const attribute_model& global : set.globals) declare(merged.globals, global);
  merged.sources.insert(merged.sources.end(), set.sources.begin(), set.sources.end());
  return merged;
}
