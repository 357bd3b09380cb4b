#include "tools/compiled/verify.h"

#include <algorithm>
#include <string>
#include <unordered_map>

#include "recording/definitions/built_in_attributes.h"
#include "recording/definitions/merged_set.h"
#include "recording/text/words.h"
#include "tools/definitions/template_rendering.h"

class definition_file_verifier {
 public:
  definition_file_verifier(const definition_file& file, const std_definitions* standard,
                           diagnostic_list& found)
      : file_(file), known_(file.set, standard), found_(found) {}

  void verify() {
    check_version();
    check_globals();
    for (const event_model& event : file_.set.events) check_event(event);
    check_extents();
  }

 private:
  void check_version() {
    const std::string_view field(file_.header.log_version, kp_ldf_version_size);
    const std::string_view padding = field.substr(file_.set.log_version.value.size());
    const bool is_padded = !padding.empty() && padding.find_first_not_of('\0') == padding.npos;
    if (!is_padded)
      found_.add("file-version"_rule, file_.set.log_version.place,
                 "the log version is a text of at most 7 characters, filled up with NULs");
  }

  // --- attributes

  void check_globals() {
    std::unordered_map<std::string_view, text_place> places;
    for (const attribute_model& global : file_.set.globals) {
      check_attribute_name(global.name);
      add_time_attribute_fault(global, found_);
      const auto [former, is_new] = places.emplace(global.name.value, global.name.place);
      if (!is_new)
        found_.add(
            "file-hidden"_rule, former->second,
            "a later global attribute " + in_quotes(global.name.value) + " replaces this one",
            global.name.place, "it comes again here");
      former->second = global.name.place;
    }
  }

  void check_attribute_name(const placed<std::string>& name) {
    if (name.value.empty()) found_.add("bad-name"_rule, name.place, "an attribute has a name");
  }

  // The library replaces an attribute that comes again when it is the selector.
  void check_attributes(const event_model& event) {
    std::unordered_map<std::string_view, text_place> places;
    for (const attribute_model& attribute : event.attributes) {
      const placed<std::string>& name = attribute.name;
      check_attribute_name(name);
      add_time_attribute_fault(attribute, found_);
      const auto [former, is_new] = places.emplace(name.value, name.place);
      if (!is_new && name.value != event.selector.value)
        found_.add("file-attribute"_rule, name.place,
                   "the attribute " + in_quotes(name.value) + " comes again in this record",
                   former->second, "it comes first here");
    }
  }

  // --- selector and messages

  void check_selector(const event_model& event) {
    if (!event.selector.is_given()) return;
    const attribute_model* const selector = known_.selector(event);
    if (selector == nullptr)
      found_.add(
          "file-selector"_rule, event.selector.place,
          "no attribute " + in_quotes(event.selector.value) + " to select by is declared here");
    else if (!is_selecting_type(selector->type))
      found_.add("selector-attribute"_rule, event.selector.place, selecting_types_text,
                 selector->name.place, "its type is given here");
  }

  void check_messages(const event_model& event) {
    std::unordered_map<uint32_t, text_place> indexes;
    std::unordered_map<uint32_t, text_place> values;
    check_template_of(event, event.message);
    for (const message_model& message : event.messages) {
      check_number(message.index, "index", indexes);
      check_number(message.value, "value", values);
      check_template_of(event, message);
    }
  }

  void check_number(const placed<uint32_t>& number, const char* what,
                    std::unordered_map<uint32_t, text_place>& places) {
    const auto [first, is_new] = places.emplace(number.value, number.place);
    if (!is_new)
      found_.add("file-hidden"_rule, number.place,
                 std::string("an earlier selector message of this ") + what + " hides this one",
                 first->second, "it comes first here");
  }

  void check_template_of(const event_model& event, const message_model& message) {
    std::vector<template_problem> problems;
    check_template(
        scan_template(message.template_bytes),
        [&](std::string_view name) { return known_.type_of(event, name); }, problems);
    if (problems.empty())
      check_rendering(
          rendered_template_of(event, message.template_bytes, message_renderer::icu, known_),
          problems);
    for (template_problem& problem : problems)
      found_.add(problem.rule,
                 {&file_.source, message.raw.place.at + kp_ldf_length_size + problem.offset},
                 std::move(problem.text));
  }

  void check_event(const event_model& event) {
    check_attributes(event);
    check_selector(event);
    check_messages(event);
  }

  // --- bytes

  std::vector<file_extent> extents() const {
    const size_t mapping = file_.header.mapping_offset;
    std::vector<file_extent> all = file_.records;
    all.push_back({0, kp_ldf_header_size});
    all.push_back(file_.globals);
    all.push_back({mapping, mapping + size_t{file_.header.n_entries} * kp_ldf_mapping_size});
    std::sort(all.begin(), all.end(),
              [](const file_extent& a, const file_extent& b) { return a.begin < b.begin; });
    all.push_back({file_.source.bytes().size(), file_.source.bytes().size()});
    return all;
  }

  void check_extents() {
    size_t end = 0;  // of what is accounted for
    for (const file_extent& extent : extents()) {
      if (extent.begin > end)
        found_.add("file-unused"_rule, {&file_.source, end},
                   counted(extent.begin - end, "byte") + " from here on: nothing refers to them");
      end = std::max(end, extent.end);
    }
  }

  const definition_file& file_;
  const attribute_lookup known_;
  diagnostic_list& found_;
};

void verify_definition_file(const definition_file& file, const std_definitions* standard,
                            diagnostic_list& found) {
  if (!file.set.is_whole) return;
  definition_file_verifier(file, standard, found).verify();
  if (standard != nullptr) check_against_std(file.set, *standard, found);
}
