#include "recording/definitions/merged_set.h"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <utility>

#include "logging/ldf_format.h"
#include "recording/definitions/built_in_attributes.h"
#include "recording/definitions/template.h"
#include "recording/text/words.h"

std_definitions::std_definitions(const definition_set& set) : set_(set) {
  for (const event_model& event : set.events) events_[event.id.value] = &event;
}

const event_model* std_definitions::find(uint32_t id) const {
  const auto event = events_.find(id);
  return event == events_.end() ? nullptr : event->second;
}

const attribute_model* find_attribute(const std::vector<attribute_model>& attributes,
                                      std::string_view name) {
  const auto found = std::find_if(attributes.begin(), attributes.end(),
                                  [&](const auto& a) { return a.name.value == name; });
  return found == attributes.end() ? nullptr : &*found;
}

const attribute_model* selector_of(const event_model& event) {
  return event.selector.is_given() ? find_attribute(event.attributes, event.selector.value)
                                   : nullptr;
}

// ---- what goes together ----

// The attribute with which there are more than 255 names together; null when there never are.
static const attribute_model* first_too_many(const std::vector<attribute_model>& held,
                                             const std::vector<attribute_model>& added) {
  std::unordered_set<std::string_view> names;
  for (const attribute_model& attribute : held) names.insert(attribute.name.value);
  for (const attribute_model& attribute : added)
    if (names.insert(attribute.name.value).second && names.size() == kp_ldf_max_count + size_t{1})
      return &attribute;
  return nullptr;
}

// One event of both sets, as the library merges it.
class std_event_merge {
 public:
  std_event_merge(const event_model& event, const event_model& std_event, diagnostic_list& found)
      : event_(event), std_(std_event), found_(found) {}

  void check() {
    check_selector();
    for (const attribute_model& attribute : event_.attributes) check_attribute(attribute);
    check_attribute_count();
    for (const message_model& message : event_.messages) check_message(message);
    check_message_count();
  }

 private:
  void check_selector() {
    const attribute_model* const selector = selector_of(std_);
    if (selector == nullptr || !event_.selector.is_given()) return;
    if (event_.selector.value == std_.selector.value) return;
    found_.add("std-selector"_rule, event_.selector.place,
               "the STD event selects by " + in_quotes(std_.selector.value), std_.selector.place,
               "its selector is given here");
  }

  // The library replaces an attribute by the selector of the same name, and nothing else.
  void check_attribute(const attribute_model& attribute) {
    if (attribute.name.value == event_.selector.value) return;
    const attribute_model* const held = find_attribute(std_.attributes, attribute.name.value);
    if (held != nullptr)
      found_.add("std-attribute"_rule, attribute.name.place,
                 "the STD event has the attribute " + in_quotes(attribute.name.value) + " already",
                 held->name.place, "it is declared here");
  }

  void check_attribute_count() {
    if (event_.attributes.size() > kp_ldf_max_count) return;
    if (const attribute_model* const attribute = first_too_many(std_.attributes, event_.attributes))
      found_.add("too-many"_rule, attribute->name.place,
                 "there can be 255 attributes together with those of the STD event, and this is "
                 "one more");
  }

  void check_message(const message_model& message) {
    for (const message_model& held : std_.messages)
      if (!check_number(message.index, held.index, "index") ||
          !check_number(message.value, held.value, "value"))
        return;
  }

  bool check_number(const placed<uint32_t>& number, const placed<uint32_t>& held,
                    const char* what) {
    if (!number.is_given() || number.value != held.value) return true;
    found_.add("std-message"_rule, number.place,
               std::string("a selector message of the STD event has this ") + what + " already",
               held.place, std::string("the ") + what + " is given here");
    return false;
  }

  void check_message_count() {
    const size_t held = std_.messages.size();
    if (event_.messages.size() > kp_ldf_max_count || held > kp_ldf_max_count) return;
    const size_t room = kp_ldf_max_count - held;
    if (event_.messages.size() > room)
      found_.add("too-many"_rule, event_.messages[room].place,
                 "there can be 255 selector messages together with those of the STD event, and "
                 "this is one more");
  }

  const event_model& event_;
  const event_model& std_;
  diagnostic_list& found_;
};

static void check_global_count(const definition_set& set, const definition_set& std_set,
                               diagnostic_list& found) {
  if (set.globals.size() > kp_ldf_max_count) return;
  if (const attribute_model* const global = first_too_many(std_set.globals, set.globals))
    found.add("too-many"_rule, global->name.place,
              "there can be 255 global attributes together with those of the STD set, and this "
              "is one more");
}

static void check_level_values(const definition_set& set, const definition_set& std_set,
                               diagnostic_list& found) {
  for (const auto& [name, level] : set.levels) {
    const auto held = std_set.levels.find(name);
    if (held != std_set.levels.end() && held->second.value != level.value)
      found.add("level-value"_rule, level.place,
                "the STD set gives the level " + in_quotes(name) + " another value",
                held->second.place, "its value is given here");
  }
}

static void check_flag_values(const definition_set& set, const definition_set& std_set,
                              diagnostic_list& found) {
  for (const auto& [name, bits] : set.flags) {
    const auto held = std_set.flags.find(name);
    if (held != std_set.flags.end() && held->second.value != bits.value)
      found.add("flag-value"_rule, bits.place,
                "the STD set gives the flag " + in_quotes(name) + " another value",
                held->second.place, "its value is given here");
  }
}

void check_against_std(const definition_set& set, const std_definitions& standard,
                       diagnostic_list& found) {
  check_global_count(set, standard.set(), found);
  check_flag_values(set, standard.set(), found);
  check_level_values(set, standard.set(), found);
  for (const event_model& event : set.events) {
    const event_model* const std_event = standard.find(event.id.value);
    if (std_event != nullptr && event.id.is_given())
      std_event_merge(event, *std_event, found).check();
  }
}

// ---- names ----

std::vector<const std::vector<attribute_model>*> attribute_lookup::lists(
    const event_model& event) const {
  std::vector<const std::vector<attribute_model>*> known = {&event.attributes};
  if (const event_model* standard = standard_event(event)) known.push_back(&standard->attributes);
  known.push_back(&set_.globals);
  if (standard_ != nullptr) known.push_back(&standard_->set().globals);
  return known;
}

const attribute_model* attribute_lookup::declared(const event_model& event,
                                                  std::string_view name) const {
  for (const std::vector<attribute_model>* attributes : lists(event))
    if (const attribute_model* attribute = find_attribute(*attributes, name)) return attribute;
  return nullptr;
}

kp_AttributeType attribute_lookup::type_of(const event_model& event, std::string_view name) const {
  if (name == own_time_attribute) return TypeTimestamp;
  const attribute_model* const attribute = declared(event, name);
  if (attribute == nullptr) return TypeUnknown;
  const bool is_shown = !is_shown_as_mbchar(name) || is_unicode_string_attribute(attribute->type);
  return is_shown ? attribute->type : TypeUnknown;
}

kp_AttributeType attribute_lookup::declared_type(const event_model& event,
                                                 std::string_view name) const {
  const attribute_model* const attribute = declared(event, name);
  return attribute == nullptr ? TypeUnknown : attribute->type;
}

std::vector<std::string_view> attribute_lookup::names(const event_model& event) const {
  std::vector<std::string_view> names = {own_time_attribute};
  for (const std::vector<attribute_model>* attributes : lists(event))
    for (const attribute_model& attribute : *attributes) names.push_back(attribute.name.value);
  return names;
}

const attribute_model* attribute_lookup::selector(const event_model& event) const {
  const attribute_model* const own = selector_of(event);
  const event_model* const standard = standard_event(event);
  if (own != nullptr || standard == nullptr) return own;
  const attribute_model* const selector = selector_of(*standard);
  const bool is_meant = selector != nullptr && (!event.selector.is_given() ||
                                                event.selector.value == selector->name.value);
  return is_meant ? selector : nullptr;
}

// ---- both as one ----

// As the library keeps attributes: one that is declared again moves to the end.
static void declare(std::vector<attribute_model>& attributes, attribute_model added) {
  const auto held = std::find_if(attributes.begin(), attributes.end(),
                                 [&](const auto& a) { return a.name.value == added.name.value; });
  if (held != attributes.end()) attributes.erase(held);
  attributes.push_back(std::move(added));
}

static void declare_all(std::vector<attribute_model>& attributes) {
  for (attribute_model& attribute : std::exchange(attributes, {}))
    declare(attributes, std::move(attribute));
}

// As the library keeps an event of one file. A selector without its declaration selects nothing,
// also when the other set declares an attribute of that name.
static void settle(event_model& event) {
  declare_all(event.attributes);
  if (selector_of(event) == nullptr) event.selector = {};
}

static void add_event(event_model& merged, const event_model& added) {
  for (const attribute_model& attribute : added.attributes) declare(merged.attributes, attribute);
  if (selector_of(added) != nullptr) merged.selector = added.selector;
  merged.messages.insert(merged.messages.end(), added.messages.begin(), added.messages.end());
  merged.second_word = added.second_word;
  if (merged.flags == 0) merged.flags = added.flags;
  const bool has_whole_message =
      !added.message.id.value.empty() && !added.message.template_bytes.empty();
  if (has_whole_message) merged.message = added.message;
}

definition_set merged_set(definition_set standard, const definition_set& set) {
  std::unordered_map<uint32_t, const event_model*> left;  // of the AUX set
  for (const event_model& event : set.events) left.emplace(event.id.value, &event);
  for (event_model& event : standard.events) {
    settle(event);
    const auto added = left.find(event.id.value);
    if (added == left.end()) continue;
    add_event(event, *added->second);
    left.erase(added);
  }
  for (const event_model& event : set.events) {
    if (left.count(event.id.value) == 0) continue;
    standard.events.push_back(event);
    settle(standard.events.back());
  }
  declare_all(standard.globals);
  for (const attribute_model& global : set.globals) declare(standard.globals, global);
  standard.sources.insert(standard.sources.end(), set.sources.begin(), set.sources.end());
  return standard;
}
