#include "tools/dump/tables.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"

using json_value = nlohmann::ordered_json;

static json_value text_value(const std::string& text) {
  if (utf8_first_invalid(text) == std::string_view::npos) return text;
  std::string hex;
  for (const char byte : text) hex += hexadecimal(static_cast<unsigned char>(byte), 2);
  return {{"hex", hex}};
}

static json_value json_attributes(const std::vector<attribute_model>& attributes) {
  json_value list = json_value::array();
  for (const attribute_model& attribute : attributes) {
    json_value& row = list.emplace_back();
    row["name"] = text_value(attribute.name.value);
    row["type"] = _kp_LOG_get_attribute_type_string(attribute.type);
    row["code"] = static_cast<unsigned>(attribute.type);
    if (attribute.redirection.is_given()) row["redirect"] = text_value(attribute.redirection.value);
  }
  return list;
}

static json_value json_message(const message_model& message) {
  json_value object;
  if (message.index.is_given()) object["index"] = message.index.value;
  if (message.value.is_given()) object["value"] = message.value.value;
  object["id"] = text_value(message.id.value);
  object["template"] = text_value(message.raw.value);
  return object;
}

static json_value json_event(const event_model& event, const file_extent& record) {
  json_value object;
  object["id"] = event.id.value;
  object["name"] = event.name.value;
  object["offset"] = record.begin;
  object["size"] = record.size();
  object["second_word"] = event.second_word.value;
  object["flags"] = event.flags;
  object["attributes"] = json_attributes(event.attributes);
  if (event.selector.is_given()) object["select"] = text_value(event.selector.value);
  object["message"] = json_message(event.message);
  object["messages"] = json_value::array();
  for (const message_model& message : event.messages)
    object["messages"].push_back(json_message(message));
  return object;
}

static json_value json_header(const definition_file& file) {
  const _kp_LOG_ldf_header_struct& header = file.header;
  return {{"size", file.source.bytes().size()},
          {"raw_word", header.raw_word},
          {"word2", header.word2},
          {"word3", header.word3},
          {"words16", header.words16},
          {"n_global_attributes", header.n_global_attributes},
          {"global_attributes_offset", header.global_attributes_offset},
          {"n_entries", header.n_entries},
          {"word52", header.word52},
          {"mapping_offset", header.mapping_offset},
          {"words60", header.words60}};
}

std::string definition_json(const definition_file& file) {
  json_value object;
  object["file"] = json_header(file);
  object["log_version"] = text_value(file.set.log_version.value);
  object["attributes"] = json_attributes(file.set.globals);
  json_value& events = object["events"] = json_value::array();
  for (size_t i = 0; i < file.set.events.size(); ++i)
    events.push_back(json_event(file.set.events[i], file.records[i]));
  return object.dump(2, ' ', true) + '\n';
}

// ---- for people ----

static std::string globals_table(const std::vector<attribute_model>& globals) {
  std::vector<text_row> rows = {{"GLOBAL ATTRIBUTE", "TYPE"}};
  for (const attribute_model& global : globals)
    rows.push_back({terminal_text(global.name.value), short_type_name(global.type)});
  return "\n" + in_columns(rows);
}

static std::string events_table(const definition_file& file) {
  std::vector<text_row> rows = {
      {"ID", "EVENT", "FLAGS", "OFFSET", "SIZE", "ATTRIBUTES", "SELECTED", "MESSAGE"}};
  for (size_t i = 0; i < file.set.events.size(); ++i) {
    const event_model& event = file.set.events[i];
    const file_extent& record = file.records[i];
    rows.push_back({std::to_string(event.id.value), terminal_text(event.name.value),
                    "0x" + hexadecimal(event.flags, 8),
                    "0x" + hexadecimal(static_cast<uint32_t>(record.begin), 8),
                    std::to_string(record.size()), std::to_string(event.attributes.size()),
                    std::to_string(event.messages.size()), terminal_text(event.message.raw.value)});
  }
  return "\n" + in_columns(rows);
}

std::string definition_overview(const definition_file& file) {
  std::string text = "log version " + terminal_text(file.set.log_version.value) + ", " +
                     counted(file.set.events.size(), "event") + ", " +
                     counted(file.set.globals.size(), "global attribute") + ", " +
                     counted(file.source.bytes().size(), "byte") + "\n";
  if (!file.set.globals.empty()) text += globals_table(file.set.globals);
  if (!file.set.events.empty()) text += events_table(file);
  return text;
}
