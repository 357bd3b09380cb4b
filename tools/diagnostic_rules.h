// What the tools find fault with: one row for each rule.
#ifndef TOOLS_DIAGNOSTIC_RULES_H
#define TOOLS_DIAGNOSTIC_RULES_H

#include <array>
#include <string_view>

enum class diagnostic_rule : unsigned {
  too_large,
  encoding,
  yaml_syntax,
  yaml_feature,
  too_deep,
  duplicate_key,
  unknown_key,
  missing_key,
  wrong_kind,
  bad_number,
  bad_name,
  bad_text,
  source_format,
  log_version,
  renderer,
  unknown_type,
  redirect_global,
  global_conflict,
  flag_value,
  unknown_flag,
  duplicate_event,
  duplicate_id,
  retired_id,
  backward_range,
  too_many,
  selector_attribute,
  selector_value,
  duplicate_selector,
  message_text,
  text_brace,
  text_attribute,
  text_format,
  text_percent,
  text_quote,
  text_adjacent,
  text_bool,
  text_name,
  text_too_many,
  silence,
  std_selector,
  std_attribute,
  std_message,
  id_range,
  reused_id,
  name_characters,
  attribute_types,
  attribute_not_shown,
  message_without_values,
  no_message,
  selector_values,
  message_size,
  code_page,
  template_syntax,
  template_attribute,
  template_lost_text,
  std_no_effect,
  std_reload,
  unused_silence,
  file_magic,
  file_short,
  file_record,
  file_overlap,
  file_mapping,
  file_string,
  file_type,
};

enum class rule_severity { off, warning, error };

// Faults stop a compilation. Advice is looked for by "kplog check" alone, and can be silenced in
// the source.
enum class rule_kind { fault, advice };

struct diagnostic_rule_row {
  diagnostic_rule rule;
  const char* code;     // shown in brackets, stable
  const char* summary;  // for the documentation
  rule_kind kind = rule_kind::fault;
  rule_severity severity = rule_severity::error;  // unless the command line says otherwise
};

// In the order of the enumeration.
constexpr std::array<diagnostic_rule_row, 65> diagnostic_rules = {{
    {diagnostic_rule::too_large, "too-large",
     "a source above 16 MiB, or of too many values; a compiled file above 1 GiB"},
    {diagnostic_rule::encoding, "encoding",
     "a source that is not UTF-8, or holds a control character"},
    {diagnostic_rule::yaml_syntax, "yaml-syntax", "a source that is not YAML"},
    {diagnostic_rule::yaml_feature, "yaml-feature",
     "anchors, aliases, merge keys, tags, a second document"},
    {diagnostic_rule::too_deep, "too-deep", "values nested more than 64 deep"},
    {diagnostic_rule::duplicate_key, "duplicate-key", "a key given twice in one place"},
    {diagnostic_rule::unknown_key, "unknown-key", "a key without meaning"},
    {diagnostic_rule::missing_key, "missing-key", "a key that must be given"},
    {diagnostic_rule::wrong_kind, "wrong-kind", "a value of another kind than its key takes"},
    {diagnostic_rule::bad_number, "bad-number", "a number that is none, or out of range"},
    {diagnostic_rule::bad_name, "bad-name", "a name that is empty or holds a control character"},
    {diagnostic_rule::bad_text, "bad-text", "a text that holds a NUL"},
    {diagnostic_rule::source_format, "source-format", "a source of another format"},
    {diagnostic_rule::log_version, "log-version",
     "a log version too long, or two of them in one set"},
    {diagnostic_rule::renderer, "renderer", "a renderer other than icu, bytes, both"},
    {diagnostic_rule::unknown_type, "unknown-type", "an attribute type that does not exist"},
    {diagnostic_rule::redirect_global, "redirect-global",
     "a redirection of a global attribute, which would have no effect"},
    {diagnostic_rule::global_conflict, "global-conflict",
     "a global attribute given twice with different types"},
    {diagnostic_rule::flag_value, "flag-value", "one flag name with two values"},
    {diagnostic_rule::unknown_flag, "unknown-flag", "a flag that is not declared"},
    {diagnostic_rule::duplicate_event, "duplicate-event", "one event name twice in a set"},
    {diagnostic_rule::duplicate_id, "duplicate-id", "one event ID twice in a set"},
    {diagnostic_rule::retired_id, "retired-id", "an event with an ID that may never come back"},
    {diagnostic_rule::backward_range, "backward-range", "a range of IDs that runs backwards"},
    {diagnostic_rule::too_many, "too-many",
     "more than 255 attributes, global attributes or selector messages"},
    {diagnostic_rule::selector_attribute, "selector-attribute",
     "a selector that is no attribute of the event, or not UInt1, UInt2 or UInt4"},
    {diagnostic_rule::selector_value, "selector-value",
     "a selector value that the attribute's type cannot hold"},
    {diagnostic_rule::duplicate_selector, "duplicate-selector",
     "two selector messages of one index or one value"},
    {diagnostic_rule::message_text, "message-text",
     "a message with both text and raw, or with neither and no id"},
    {diagnostic_rule::text_brace, "text-brace",
     "a brace without its partner, or nothing between them"},
    {diagnostic_rule::text_attribute, "text-attribute", "a placeholder of an unknown attribute"},
    {diagnostic_rule::text_format, "text-format",
     "a format that does not suit the attribute's type, or a time without one"},
    {diagnostic_rule::text_percent, "text-percent",
     "a percent sign, which the byte renderer cannot show"},
    {diagnostic_rule::text_quote, "text-quote",
     "a brace or an apostrophe that the two renderers would show differently"},
    {diagnostic_rule::text_adjacent, "text-adjacent",
     "two placeholders with nothing between them, for the byte renderer"},
    {diagnostic_rule::text_bool, "text-bool",
     "a Bool as a number, which the byte renderer cannot show"},
    {diagnostic_rule::text_name, "text-name", "an attribute name that a template cannot hold"},
    {diagnostic_rule::text_too_many, "text-too-many", "more than ten placeholders, for ICU"},
    {diagnostic_rule::silence, "silence",
     "a silence of a rule that cannot be silenced, or without a reason"},
    {diagnostic_rule::std_selector, "std-selector", "a selector other than that of the STD event"},
    {diagnostic_rule::std_attribute, "std-attribute",
     "an attribute that the STD event has already"},
    {diagnostic_rule::std_message, "std-message",
     "a selector message with an index or a value that the STD event has already"},
    {diagnostic_rule::id_range, "id-range", "an ID outside the ranges that its source declares",
     rule_kind::advice},
    {diagnostic_rule::reused_id, "reused-id", "an ID that the STD set gives to another name",
     rule_kind::advice, rule_severity::warning},
    {diagnostic_rule::name_characters, "name-characters",
     "a name with blanks or invisible characters", rule_kind::advice, rule_severity::warning},
    {diagnostic_rule::attribute_types, "attribute-types",
     "one attribute name with different types in a set", rule_kind::advice, rule_severity::warning},
    {diagnostic_rule::attribute_not_shown, "attribute-not-shown",
     "an attribute that no message of its event shows", rule_kind::advice, rule_severity::warning},
    {diagnostic_rule::message_without_values, "message-without-values",
     "a message that shows no value, of an event that has some", rule_kind::advice,
     rule_severity::warning},
    {diagnostic_rule::no_message, "no-message", "an event without any message", rule_kind::advice,
     rule_severity::warning},
    {diagnostic_rule::selector_values, "selector-values",
     "a selector without messages, or without one for the other values", rule_kind::advice,
     rule_severity::warning},
    {diagnostic_rule::message_size, "message-size",
     "a message that may be longer than the library renders", rule_kind::advice,
     rule_severity::warning},
    {diagnostic_rule::code_page, "code-page",
     "a text that a code page given with --codepage cannot hold", rule_kind::advice,
     rule_severity::warning},
    {diagnostic_rule::template_syntax, "template-syntax",
     "a raw template with an incomplete placeholder", rule_kind::advice},
    {diagnostic_rule::template_attribute, "template-attribute",
     "a raw template that names an unknown attribute, or one that its format does not suit",
     rule_kind::advice},
    {diagnostic_rule::template_lost_text, "template-lost-text",
     "a raw template with text that its renderer drops", rule_kind::advice, rule_severity::warning},
    {diagnostic_rule::std_no_effect, "std-no-effect",
     "a value that the STD event overrides, or loses", rule_kind::advice, rule_severity::warning},
    {diagnostic_rule::std_reload, "std-reload",
     "events of both sets in sets so large that the library forgets their STD part",
     rule_kind::advice, rule_severity::warning},
    {diagnostic_rule::unused_silence, "unused-silence", "a silence without anything to silence",
     rule_kind::advice, rule_severity::warning},
    {diagnostic_rule::file_magic, "file-magic",
     "a compiled file that does not begin with \".LDF\""},
    {diagnostic_rule::file_short, "file-short",
     "a compiled file that ends within a section, a record or a string"},
    {diagnostic_rule::file_record, "file-record",
     "an entry record of another ID than the mapping table says"},
    {diagnostic_rule::file_overlap, "file-overlap",
     "entry records that lie over one another many times"},
    {diagnostic_rule::file_mapping, "file-mapping", "an entry ID that the mapping table has twice",
     rule_kind::fault, rule_severity::warning},
    {diagnostic_rule::file_string, "file-string",
     "a compiled string without a NUL, or with bytes behind it", rule_kind::fault,
     rule_severity::warning},
    {diagnostic_rule::file_type, "file-type", "a type code in a compiled file that is none",
     rule_kind::fault, rule_severity::warning},
}};

constexpr const diagnostic_rule_row& rule_row(diagnostic_rule rule) {
  return diagnostic_rules[static_cast<unsigned>(rule)];
}

constexpr const char* rule_code(diagnostic_rule rule) {
  return rule_row(rule).code;
}

// The rule of a code, null when there is none.
constexpr const diagnostic_rule_row* rule_of_code(std::string_view code) {
  for (const diagnostic_rule_row& row : diagnostic_rules)
    if (row.code == code) return &row;
  return nullptr;
}

constexpr bool is_silenceable(std::string_view code) {
  const diagnostic_rule_row* const row = rule_of_code(code);
  return row != nullptr && row->kind == rule_kind::advice;
}

#endif
