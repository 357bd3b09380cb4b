#include "tools/source/completion.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <unordered_map>

#include "logging/ldf_format.h"
#include "recording/definitions/built_in_attributes.h"
#include "recording/definitions/merged_set.h"
#include "recording/text/words.h"
#include "tools/definitions/authored_text.h"
#include "tools/definitions/template_rendering.h"
#include "tools/source/scalar_place.h"

class definition_set_completion {
 public:
  definition_set_completion(definition_set& set, diagnostic_list& found,
                            const std_definitions* standard)
      : set_(set), found_(found), std_(standard), known_(set, standard) {}

  void run() {
    set_.flags.emplace("DEBUG", flag_model{{definition_debug_flag, {}}});
    check_count(set_.globals, "global attributes");
    check_time_attributes(set_.globals);
    check_log_version();
    for (const placed<std::string>& level : set_.source_levels) check_level(level);
    for (event_model& event : set_.events) check_event(event);
    if (std_ != nullptr) check_against_std(set_, *std_, found_);
  }

 private:
  void check_log_version() {
    if (!set_.log_version.is_given() && set_.is_whole)
      found_.add("missing-key"_rule, {set_.sources.front(), 0},
                 "a set needs the key \"log_version\"");
  }

  void check_event(event_model& event) {
    check_event_name(event);
    check_event_id(event);
    check_count(event.attributes, "attributes");
    check_time_attributes(event.attributes);
    check_message_count(event);
    complete_flags(event);
    complete_level(event);
    check_selector(event);
    check_selector_messages(event);
    complete_messages(event);
  }

  // --- names, IDs, counts

  void check_event_name(const event_model& event) {
    if (!event.name.is_given()) return;
    const auto [first, is_new] = names_.emplace(event.name.value, event.name.place);
    if (!is_new)
      found_.add("duplicate-event"_rule, event.name.place,
                 "the event " + in_quotes(event.name.value) + " exists already", first->second,
                 "it is defined here first");
  }

  void check_event_id(const event_model& event) {
    if (!event.id.is_given()) return;
    const auto [first, is_new] = ids_.emplace(event.id.value, event.id.place);
    const std::string id = std::to_string(event.id.value);
    if (!is_new)
      found_.add("duplicate-id"_rule, event.id.place, "the ID " + id + " is taken", first->second,
                 "it is given here first");
    check_retired(event.id, set_.retired);
    if (std_ != nullptr) check_retired(event.id, std_->set().retired);
  }

  void check_retired(const placed<uint32_t>& id, const std::vector<id_range>& all) {
    const auto retired =
        std::find_if(all.begin(), all.end(), [&](const auto& r) { return r.holds(id.value); });
    if (retired != all.end())
      found_.add("retired-id"_rule, id.place, "the ID " + std::to_string(id.value) + " is retired",
                 retired->place, "it is retired here");
  }

  void check_count(const std::vector<attribute_model>& attributes, const char* what) {
    if (attributes.size() > kp_ldf_max_count)
      found_.add("too-many"_rule, attributes[kp_ldf_max_count].name.place,
                 std::string("there can be 255 ") + what + ", and this is one more");
  }

  void check_time_attributes(const std::vector<attribute_model>& attributes) {
    for (const attribute_model& attribute : attributes) add_time_attribute_fault(attribute, found_);
  }

  void check_message_count(const event_model& event) {
    if (event.messages.size() > kp_ldf_max_count)
      found_.add("too-many"_rule, event.messages[kp_ldf_max_count].place,
                 "there can be 255 selector messages, and this is one more");
  }

  void complete_flags(event_model& event) {
    for (const placed<std::string>& name : event.flag_names) {
      const flag_model* const flag = find_flag(name.value);
      if (flag != nullptr)
        event.flags |= flag->value;
      else if (set_.is_whole)
        found_.add("unknown-flag"_rule, name.place,
                   "no flag " + in_quotes(name.value) +
                       nearest_name_hint(name.value, flag_names()) + note_of_lost_names("flags"));
    }
  }

  // What is wrong with a level of the source is said there, once.
  void complete_level(event_model& event) {
    if (event.has_own_level) check_level(event.level);
    event.default_level = number_of_level(event.level).value_or(usual_log_level);
  }

  void check_level(const placed<std::string>& level) {
    if (set_.is_whole && !number_of_level(level))
      found_.add("unknown-level"_rule, level.place,
                 "no level " + in_quotes(level.value) +
                     nearest_name_hint(level.value, level_names()) + note_of_lost_names("levels"));
  }

  // Nothing where the name is none. The reader has read numbers.
  std::optional<uint32_t> number_of_level(const placed<std::string>& level) const {
    if (!level.is_given()) return usual_log_level;
    const std::string& text = level.value;
    if (text.size() == 1 && text[0] >= '0' && text[0] <= '9')
      return static_cast<uint32_t>(text[0] - '0');
    const auto named = set_.levels.find(text);
    if (named != set_.levels.end()) return named->second.value;
    if (std_ == nullptr) return std::nullopt;
    const auto std_named = std_->set().levels.find(text);
    if (std_named == std_->set().levels.end()) return std::nullopt;
    return std_named->second.value;
  }

  std::vector<std::string_view> level_names() const {
    std::vector<std::string_view> names;
    for (const auto& [name, level] : set_.levels) names.push_back(name);
    if (std_ != nullptr)
      for (const auto& [name, level] : std_->set().levels) names.push_back(name);
    return names;
  }

  // A compiled file has the bits of flags alone, and no levels.
  std::string note_of_lost_names(const std::string& what) const {
    const bool is_compiled =
        std_ != nullptr && !std_->set().sources.empty() && std_->set().sources.front()->is_binary();
    return is_compiled
               ? "; the STD set is compiled, and so has no names of " + what + ": give its source"
               : "";
  }

  const flag_model* find_flag(std::string_view name) const {
    const auto flag = set_.flags.find(name);
    if (flag != set_.flags.end()) return &flag->second;
    if (std_ == nullptr) return nullptr;
    const auto std_flag = std_->set().flags.find(name);
    return std_flag == std_->set().flags.end() ? nullptr : &std_flag->second;
  }

  std::vector<std::string_view> flag_names() const {
    std::vector<std::string_view> names;
    for (const auto& [name, bits] : set_.flags) names.push_back(name);
    if (std_ != nullptr)
      for (const auto& [name, bits] : std_->set().flags) names.push_back(name);
    return names;
  }

  // --- the selector

  void refuse_selector(const event_model& event) {
    if (set_.may_be_auxiliary && std_ == nullptr)
      return found_.add("std-needed"_rule, event.selector.place,
                        "only an STD event can have the selector " +
                            in_quotes(event.selector.value) +
                            "; beside its set, given with --std, the dump compiles");
    std::vector<std::string_view> names;
    for (const attribute_model& own : event.attributes) names.push_back(own.name.value);
    found_.add("selector-attribute"_rule, event.selector.place,
               "the event itself has no attribute " + in_quotes(event.selector.value) +
                   nearest_name_hint(event.selector.value, names));
  }

  void check_selector(const event_model& event) {
    const attribute_model* const attribute = known_.selector(event);
    if (attribute != nullptr)
      check_selector_type(event, *attribute);
    else if (event.selector.is_given() && event.is_whole)
      refuse_selector(event);
  }

  void check_selector_type(const event_model& event, const attribute_model& attribute) {
    if (attribute.type == TypeUnknown) return;
    if (!is_selecting_type(attribute.type))
      return found_.add("selector-attribute"_rule,
                        event.selector.is_given() ? event.selector.place : event.id.place,
                        selecting_types_text, attribute.name.place, "its type is given here");
    const uint32_t largest = find_type(attribute.type)->largest_selector;
    for (const message_model& message : event.messages)
      if (message.value.value > largest)
        found_.add("selector-value"_rule, message.value.place,
                   in_quotes(attribute.name.value) + " never holds a value above " +
                       std::to_string(largest));
  }

  void check_selector_messages(const event_model& event) {
    std::unordered_map<uint32_t, text_place> indexes;
    std::unordered_map<uint32_t, text_place> values;
    std::unordered_map<std::string, text_place> names;
    for (const message_model& message : event.messages) {
      check_selector_key(message.index, "index", indexes);
      check_selector_key(message.value, "value", values);
      check_selector_key(message.name, "name", names);
    }
  }

  template <class T>
  void check_selector_key(const placed<T>& key, const char* what,
                          std::unordered_map<T, text_place>& known) {
    if (!key.is_given()) return;
    const auto [first, is_new] = known.emplace(key.value, key.place);
    if (!is_new)
      found_.add("duplicate-selector"_rule, key.place,
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
    std::vector<template_problem> problems;
    if (message.raw.is_given())
      check_raw_template(event, message, problems);
    else
      make_template(event, message, problems);
    if (problems.empty() && event.is_whole)
      check_rendering(rendered_template_of(event, message.template_bytes, event.renderer, known_),
                      problems);
    const placed<std::string>& text = message.raw.is_given() ? message.raw : message.text;
    for (template_problem& problem : problems) {
      // What is not there may stand in what could not be read.
      const bool is_absence =
          problem.rule == "text-attribute"_rule || problem.rule == "template-attribute"_rule;
      if (is_absence && !set_.is_whole) continue;
      found_.add(problem.rule, place_in_text(text, problem.offset), std::move(problem.text));
    }
  }

  static text_place place_in_text(const placed<std::string>& text, size_t offset) {
    const text_place& place = text.place;
    if (place.source == nullptr) return place;
    if (place.source->is_binary()) return {place.source, place.at + kp_ldf_length_size + offset};
    return place_in_scalar(place, text.value, offset);
  }

  // Whether the template names what only an STD event can declare.
  bool needs_standard(const event_model& event, const message_model& message) const {
    if (!set_.may_be_auxiliary || std_ != nullptr) return false;
    const std::vector<template_piece> pieces = scan_template(message.template_bytes);
    return std::any_of(pieces.begin(), pieces.end(), [&](const template_piece& piece) {
      return piece.kind == template_piece::kinds::placeholder &&
             known_.type_of(event, piece.text) == TypeUnknown;
    });
  }

  void check_raw_template(const event_model& event, message_model& message,
                          std::vector<template_problem>& problems) {
    message.template_bytes = message.raw.value;
    if (needs_standard(event, message))
      return problems.push_back({"std-needed"_rule, 0,
                                 "only an STD event can declare what this message names; beside "
                                 "its set, given with --std, the dump compiles"});
    check_template(
        scan_template(message.template_bytes),
        [&](std::string_view name) { return known_.type_of(event, name); }, problems);
  }

  void make_template(const event_model& event, message_model& message,
                     std::vector<template_problem>& problems) {
    const template_attributes attributes{
        [&](std::string_view name) { return known_.type_of(event, name); },
        [&] { return known_.names(event); }};
    message.template_bytes =
        template_from_text(message.text.value, event.renderer, attributes, problems);
  }

  definition_set& set_;
  diagnostic_list& found_;
  const std_definitions* const std_;  // null: the set stands alone
  const attribute_lookup known_;
  std::unordered_map<std::string, text_place> names_;
  std::unordered_map<uint32_t, text_place> ids_;
};

void complete_definition_set(definition_set& set, diagnostic_list& found,
                             const std_definitions* standard) {
  definition_set_completion(set, found, standard).run();
}
