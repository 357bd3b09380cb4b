// What the tools find fault with: one row for each rule.
#ifndef TOOLS_DIAGNOSTIC_RULES_H
#define TOOLS_DIAGNOSTIC_RULES_H

#include <array>

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
  retired_range,
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
};

struct diagnostic_rule_row {
  diagnostic_rule rule;
  const char* code;     // shown in brackets, stable
  const char* summary;  // for the documentation
};

// In the order of the enumeration.
constexpr std::array<diagnostic_rule_row, 38> diagnostic_rules = {{
    {diagnostic_rule::too_large, "too-large", "a source above 16 MiB, or of too many values"},
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
    {diagnostic_rule::retired_range, "retired-range", "a range of retired IDs that runs backwards"},
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
}};

constexpr const char* rule_code(diagnostic_rule rule) {
  return diagnostic_rules[static_cast<unsigned>(rule)].code;
}

#endif
