#include "tools/definition_check.h"

#include <algorithm>
#include <array>
#include <string>
#include <unordered_map>

#include "logging/def_read.h"
#include "logging/logentry_i.h"
#include "tools/nearest_name.h"

// Types that select a message, with the largest value of each. The library reads the selector as
// unsigned, and raises for any other type.
struct selector_type_row {
  kp_AttributeType type;
  uint32_t largest;
};

static constexpr std::array<selector_type_row, 3> selector_types = {{
    {TypeUInt1, 0xFF},
    {TypeUInt2, 0xFFFF},
    {TypeUInt4, 0xFFFFFFFF},
}};

static std::string named(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

static const attribute_model* find_attribute(const std::vector<attribute_model>& attributes,
                                             std::string_view name) {
  const auto found = std::find_if(attributes.begin(), attributes.end(),
                                  [&](const auto& a) { return a.name.value == name; });
  return found == attributes.end() ? nullptr : &*found;
}

class definition_set_checker {
 public:
  definition_set_checker(definition_set& set, diagnostic_list& found) : set_(set), found_(found) {}

  void run() {
    set_.flags.emplace("DEBUG", placed<uint32_t>{definition_debug_flag, {}});
    check_count(set_.globals, "global attributes");
    check_log_version();
    for (event_model& event : set_.events) check_event(event);
  }

 private:
  void check_log_version() {
    if (!set_.log_version.is_given() && set_.is_whole)
      found_.add(diagnostic_rule::missing_key, {set_.sources.front(), 0, 0},
                 "a set needs the key \"log_version\"");
  }

  void check_event(event_model& event) {
    check_event_name(event);
    check_event_id(event);
    check_count(event.attributes, "attributes");
    check_message_count(event);
    complete_flags(event);
    check_selector(event);
    check_selector_messages(event);
    complete_messages(event);
  }

  // --- names, IDs, counts

  void check_event_name(const event_model& event) {
    const auto [first, is_new] = names_.emplace(event.name.value, event.name.place);
    if (!is_new)
      found_.add(diagnostic_rule::duplicate_event, event.name.place,
                 "the event " + named(event.name.value) + " exists already", first->second,
                 "it is defined here first");
  }

  void check_event_id(const event_model& event) {
    if (!event.id.is_given()) return;
    const auto [first, is_new] = ids_.emplace(event.id.value, event.id.place);
    const std::string id = std::to_string(event.id.value);
    if (!is_new)
      found_.add(diagnostic_rule::duplicate_id, event.id.place, "the ID " + id + " is taken",
                 first->second, "it is given here first");
    for (const id_range& retired : set_.retired)
      if (retired.holds(event.id.value))
        return found_.add(diagnostic_rule::retired_id, event.id.place,
                          "the ID " + id + " is retired", retired.place, "it is retired here");
  }

  void check_count(const std::vector<attribute_model>& attributes, const char* what) {
    if (attributes.size() > kp_ldf_max_count)
      found_.add(diagnostic_rule::too_many, attributes[kp_ldf_max_count].name.place,
                 std::string("there can be 255 ") + what + ", and this is one more");
  }

  void check_message_count(const event_model& event) {
    if (event.messages.size() > kp_ldf_max_count)
      found_.add(diagnostic_rule::too_many, event.messages[kp_ldf_max_count].place,
                 "there can be 255 selector messages, and this is one more");
  }

  void complete_flags(event_model& event) {
    for (const placed<std::string>& name : event.flag_names) {
      const auto flag = set_.flags.find(name.value);
      if (flag != set_.flags.end()) {
        event.flags |= flag->second.value;
        continue;
      }
      std::vector<std::string_view> names;
      for (const auto& [known, bits] : set_.flags) names.push_back(known);
      found_.add(diagnostic_rule::unknown_flag, name.place,
                 "no flag " + named(name.value) + nearest_name_hint(name.value, names));
    }
  }

  // --- the selector

  void check_selector(const event_model& event) {
    if (!event.selector.is_given()) return;
    const attribute_model* attribute = find_attribute(event.attributes, event.selector.value);
    if (attribute == nullptr) {
      std::vector<std::string_view> names;
      for (const attribute_model& own : event.attributes) names.push_back(own.name.value);
      return found_.add(diagnostic_rule::selector_attribute, event.selector.place,
                        "the event itself has no attribute " + named(event.selector.value) +
                            nearest_name_hint(event.selector.value, names));
    }
    const auto* row = selector_type(attribute->type);
    if (attribute->type == TypeUnknown) return;
    if (row == nullptr)
      return found_.add(diagnostic_rule::selector_attribute, event.selector.place,
                        "an attribute of type UInt1, UInt2 or UInt4 selects a message",
                        attribute->name.place, "its type is given here");
    for (const message_model& message : event.messages)
      if (message.value.value > row->largest)
        found_.add(diagnostic_rule::selector_value, message.value.place,
                   named(event.selector.value) + " never holds a value above " +
                       std::to_string(row->largest));
  }

  static const selector_type_row* selector_type(kp_AttributeType type) {
    const auto* row = std::find_if(selector_types.begin(), selector_types.end(),
                                   [&](const auto& r) { return r.type == type; });
    return row == selector_types.end() ? nullptr : row;
  }

  void check_selector_messages(const event_model& event) {
    std::unordered_map<uint32_t, source_place> indexes;
    std::unordered_map<uint32_t, source_place> values;
    for (const message_model& message : event.messages) {
      check_selector_number(message.index, "index", indexes);
      check_selector_number(message.value, "value", values);
    }
  }

  void check_selector_number(const placed<uint32_t>& number, const char* what,
                             std::unordered_map<uint32_t, source_place>& known) {
    if (!number.is_given()) return;
    const auto [first, is_new] = known.emplace(number.value, number.place);
    if (!is_new)
      found_.add(diagnostic_rule::duplicate_selector, number.place,
                 std::string("another selector message has this ") + what + " already",
                 first->second, std::string("the ") + what + " is given here first");
  }

  // --- messages

  void complete_messages(event_model& event) {
    complete_message(event, event.message, event.name.value);
    for (message_model& message : event.messages)
      complete_message(event, message,
                       event.name.value + "." + std::to_string(message.index.value));
  }

  void complete_message(const event_model& event, message_model& message,
                        const std::string& default_id) {
    if (!message.id.is_given()) message.id.value = default_id;
    message.template_bytes =
        message.raw.is_given() ? message.raw.value : make_template(event, message.text);
  }

  std::string make_template(const event_model& event, const placed<std::string>& text) {
    std::vector<template_problem> problems;
    const template_attributes attributes{
        [&](std::string_view name) { return type_of(event, name); },
        [&] { return names_known_to(event); }};
    std::string result = template_from_text(text.value, event.renderer, attributes, problems);
    for (template_problem& problem : problems)
      found_.add(problem.rule, place_in_scalar(text.place, text.value, problem.offset),
                 std::move(problem.text));
    return result;
  }

  // As the library looks names up: built-in fields first, then the event's own, then the global
  // ones.
  kp_AttributeType type_of(const event_model& event, std::string_view name) const {
    kp_AttributeType type = TypeUnknown;
    if (is_default_info_fields(std::string(name).c_str(), type)) return type;
    const attribute_model* attribute = find_attribute(event.attributes, name);
    if (attribute == nullptr) attribute = find_attribute(set_.globals, name);
    return attribute == nullptr ? TypeUnknown : attribute->type;
  }

  std::vector<std::string_view> names_known_to(const event_model& event) const {
    std::vector<std::string_view> names = {"TIMESTAMP"};
    for (const attribute_model& own : event.attributes) names.push_back(own.name.value);
    for (const attribute_model& global : set_.globals) names.push_back(global.name.value);
    return names;
  }

  definition_set& set_;
  diagnostic_list& found_;
  std::unordered_map<std::string, source_place> names_;
  std::unordered_map<uint32_t, source_place> ids_;
};

void complete_definition_set(definition_set& set, diagnostic_list& found) {
  definition_set_checker(set, found).run();
}
