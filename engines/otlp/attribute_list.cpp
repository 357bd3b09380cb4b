#include "engines/otlp/attribute_list.h"

#include <simdjson.h>

#include <cmath>

#include "recording/records/scalar.h"
#include "recording/text/escape.h"
#include "recording/text/number.h"

namespace ondemand = simdjson::ondemand;

// False where the name is taken.
bool otlp_attribute_list::begin(std::string_view name) {
  if (!names_.emplace(name).second) return false;
  json_.append(names_.size() == 1 ? std::string_view("{\"key\":") : std::string_view(",{\"key\":"));
  append_json_text(json_, name);
  json_.append(",\"value\":{");
  return true;
}

static void append_otlp_text(line_writer& json, std::string_view text) {
  json.append("\"stringValue\":");
  append_json_text(json, text);
}

// What no integer of 64 bits is, is a text.
static void append_otlp_integer(line_writer& json, std::string_view digits) {
  const auto number = number_of<int64_t>(digits);
  if (!number) return append_otlp_text(json, digits);
  json.append("\"intValue\":\"");
  json.append_number(*number);
  json.append('"');
}

// The three that JSON has no numbers for are texts; numbers are those of record and context.
static void append_otlp_real(line_writer& json, std::string_view text) {
  const bool is_special = text == "NaN" || text == "Infinity" || text == "-Infinity";
  const auto number = is_special ? std::nullopt : number_of<double>(text);
  if (!is_special && (!number || !std::isfinite(*number))) return append_otlp_text(json, text);
  json.append("\"doubleValue\":");
  if (is_special)
    append_json_text(json, text);
  else
    json.append(text);
}

static void append_otlp_value(line_writer& json, const record_value& value) {
  switch (value.kind) {
    case record_value_kind::null:
      break;
    case record_value_kind::boolean:
      json.append("\"boolValue\":");
      json.append(value.text);
      break;
    case record_value_kind::integer:
      append_otlp_integer(json, value.text);
      break;
    case record_value_kind::real:
      append_otlp_real(json, value.text);
      break;
    case record_value_kind::text:
      append_otlp_text(json, value.text);
      break;
  }
}

void otlp_attribute_list::add(std::string_view name, const record_value& value) {
  if (!begin(name)) return;
  append_otlp_value(json_, value);
  json_.append("}}");
}

void otlp_attribute_list::add_text(std::string_view name, std::string_view text) {
  add(name, {record_value_kind::text, text, 0});
}

void otlp_attribute_list::add_number(std::string_view name, uint64_t number) {
  const std::string digits = std::to_string(number);
  add(name, {record_value_kind::integer, digits, 0});
}

static void add_context_members(otlp_attribute_list& attributes, const std::string& prefix,
                                ondemand::object object) {
  for (ondemand::field field : object) {
    const std::string name = prefix + "." + std::string(std::string_view(field.unescaped_key()));
    ondemand::value value = field.value();
    const ondemand::json_type type = value.type();
    if (type == ondemand::json_type::object) {
      add_context_members(attributes, name, value.get_object());
    } else if (type == ondemand::json_type::array) {
      attributes.add_text(name, simdjson::to_json_string(value));
    } else if (type == ondemand::json_type::string) {
      attributes.add_text(name, value.get_string());
    } else {
      const std::string_view token = without_blanks_behind(value.raw_json_token());
      attributes.add(name, {scalar_kind(token).value_or(record_value_kind::text), token, 0});
    }
  }
}

void otlp_attribute_list::add_members(const std::string& name, std::string_view json) {
  ondemand::parser parser;
  const simdjson::padded_string padded(json);
  ondemand::document document = parser.iterate(padded);
  add_context_members(*this, name, document.get_object());
}
