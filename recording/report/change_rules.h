// What two sets can differ in, and whom each difference breaks: one row for each rule.
#ifndef RECORDING_REPORT_CHANGE_RULES_H
#define RECORDING_REPORT_CHANGE_RULES_H

#include <array>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <vector>

// Bits of whom a difference breaks.
constexpr unsigned breaks_nobody = 0;
constexpr unsigned breaks_source = 1;        // programs that make entries
constexpr unsigned breaks_records = 2;       // entries that are stored, and what reads them
constexpr unsigned breaks_translations = 4;  // catalogs
constexpr unsigned breaks_filters = 8;       // masks of property flags

struct change_class_row {
  unsigned bit;
  const char* name;
};

constexpr std::array<change_class_row, 4> change_classes = {{
    {breaks_source, "source"},
    {breaks_records, "records"},
    {breaks_translations, "translations"},
    {breaks_filters, "filters"},
}};

enum class change_rule : unsigned {
  log_version,
  flag_added,
  flag_removed,
  flag_value,
  global_added,
  global_removed,
  global_order,
  retired_added,
  retired_removed,
  ids_added,
  ids_removed,
  event_order,
  event_added,
  event_removed,
  event_renamed,
  default_id,
  default_id_shared,
  event_id,
  id_reused,
  event_flags,
  second_word,
  note,
  attribute_added,
  attribute_removed,
  attribute_renamed,
  attribute_order,
  attribute_type,
  attribute_widened,
  attribute_narrowed,
  redirect,
  selector,
  message_added,
  message_removed,
  message_order,
  message_index,
  message_value,
  message_name,
  message_id,
  message_repointed,
  message_text,
  message_template,
  message_format,
};

struct change_rule_row {
  change_rule rule;
  const char* code;  // stable
  unsigned breaks;
  const char* summary;         // for the documentation
  bool is_of_sources = false;  // not compared beside a compiled file
};

// In the order of the enumeration.
constexpr auto change_rules = std::to_array<change_rule_row>({
    {change_rule::log_version, "log-version", breaks_nobody, "another log version"},
    {change_rule::flag_added, "flag-added", breaks_nobody, "a new flag name", true},
    {change_rule::flag_removed, "flag-removed", breaks_source, "a flag name that is gone", true},
    {change_rule::flag_value, "flag-value", breaks_filters, "other bits of a flag name", true},
    {change_rule::global_added, "global-added", breaks_nobody, "a new global attribute"},
    {change_rule::global_removed, "global-removed", breaks_source | breaks_records,
     "a global attribute that is gone"},
    {change_rule::global_order, "global-order", breaks_nobody,
     "the global attributes in another order"},
    {change_rule::retired_added, "retired-added", breaks_nobody, "an ID that is retired now", true},
    {change_rule::retired_removed, "retired-removed", breaks_records,
     "an ID that was retired and is not any more", true},
    {change_rule::ids_added, "ids-added", breaks_nobody,
     "an ID that a range given by ids holds now", true},
    {change_rule::ids_removed, "ids-removed", breaks_nobody,
     "an ID that no range given by ids holds any more", true},
    {change_rule::event_order, "event-order", breaks_nobody, "the events in another order"},
    {change_rule::event_added, "event-added", breaks_nobody, "a new event"},
    {change_rule::event_removed, "event-removed",
     breaks_source | breaks_records | breaks_translations, "an event that is gone"},
    {change_rule::event_renamed, "event-renamed", breaks_source,
     "an event with another name; compiled files have no names", true},
    {change_rule::default_id, "default-id", breaks_source | breaks_records | breaks_translations,
     "another ID of a default message, by which records name the event"},
    {change_rule::default_id_shared, "default-id-shared", breaks_source | breaks_records,
     "a default message with an ID by which records name another event"},
    {change_rule::event_id, "event-id", breaks_source | breaks_records, "an event with another ID"},
    {change_rule::id_reused, "id-reused", breaks_source | breaks_records | breaks_filters,
     "an event with an ID that was another event's, or retired"},
    {change_rule::event_flags, "event-flags", breaks_filters, "other property flags"},
    {change_rule::second_word, "second-word", breaks_records, "another second word"},
    {change_rule::note, "note", breaks_nobody, "another note of an event or an attribute", true},
    {change_rule::attribute_added, "attribute-added", breaks_source, "a new attribute of an event"},
    {change_rule::attribute_removed, "attribute-removed", breaks_source | breaks_records,
     "an attribute of an event that is gone"},
    {change_rule::attribute_renamed, "attribute-renamed", breaks_source | breaks_records,
     "an attribute of an event with another name"},
    {change_rule::attribute_order, "attribute-order", breaks_source,
     "the attributes of an event in another order"},
    {change_rule::attribute_type, "attribute-type", breaks_source | breaks_records,
     "an attribute of another kind"},
    {change_rule::attribute_widened, "attribute-widened", breaks_records,
     "an attribute for longer strings"},
    {change_rule::attribute_narrowed, "attribute-narrowed", breaks_source | breaks_records,
     "an attribute for shorter strings"},
    {change_rule::redirect, "redirect", breaks_records, "another redirection of an attribute"},
    {change_rule::selector, "selector", breaks_source | breaks_records,
     "another attribute that selects messages"},
    {change_rule::message_added, "message-added", breaks_translations, "a new selector message"},
    {change_rule::message_removed, "message-removed",
     breaks_source | breaks_records | breaks_translations, "a selector message that is gone"},
    {change_rule::message_order, "message-order", breaks_nobody,
     "the selector messages of an event in another order"},
    {change_rule::message_index, "message-index", breaks_source | breaks_records,
     "another index of a selector message"},
    {change_rule::message_value, "message-value", breaks_source | breaks_records,
     "another value that selects a message"},
    {change_rule::message_name, "message-name", breaks_source, "another name of a selector message",
     true},
    {change_rule::message_id, "message-id", breaks_translations,
     "another message ID of the same text"},
    {change_rule::message_repointed, "message-repointed", breaks_records | breaks_translations,
     "a selector message of another ID and text, or a text or an ID that was another message's"},
    {change_rule::message_text, "message-text", breaks_translations, "another text of a message"},
    {change_rule::message_template, "message-template", breaks_nobody,
     "another template of the same text"},
    {change_rule::message_format, "message-format", breaks_translations,
     "a message with attributes that the catalogs' texts of it do not suit any more"},
});

constexpr const change_rule_row& change_row(change_rule rule) {
  return change_rules[static_cast<size_t>(rule)];
}

inline std::vector<std::string_view> change_codes() {
  std::vector<std::string_view> codes;
  codes.reserve(std::size(change_rules));
  for (const change_rule_row& row : change_rules) codes.emplace_back(row.code);
  return codes;
}

constexpr bool is_change_code(std::string_view code) {
  for (const change_rule_row& row : change_rules)
    if (row.code == code) return true;
  return false;
}

#endif
