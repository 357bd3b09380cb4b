#include "recording/records/stored_form.h"
#include "recording/definitions/types.h"
#include "recording/records/values.h"
#include "recording/text/escape.h"

// Appends "NAME":VALUE and, to `types`, "NAME":"TYPE", with commas in front, when the attribute is
// held.
static void append_member(std::string& json, std::string& types, const made_entry& made,
                          const known_attribute& attribute) {
  const size_t before = json.size();
  json += ',';
  append_json_text(json, attribute.name);
  const std::string member_name = json.substr(before) + ':';
  json += ':';
  if (!append_held_value(json, made.entry, attribute)) {
    json.resize(before);
    return;
  }
  types += member_name;
  append_json_text(types, short_type_name(attribute.type));
}

static void append_object(std::string& json, const char* key, std::string_view members) {
  json += key;
  json += '{';
  json += members.substr(members.empty() ? 0 : 1);
  json += '}';
}

static void append_attributes(std::string& json, const made_entry& made) {
  std::string members;
  std::string types;
  if (made.event != nullptr)
    for (const known_attribute& attribute : made.event->attributes)
      append_member(members, types, made, attribute);
  append_object(json, ",\"attributes\":", members);
  append_object(json, ",\"types\":", types);
}

// --- The whole ---

stored_form::stored_form(const std::string& set_version) : start_(stored_record_start) {
  append_json_text(start_, set_version);
  start_ += ",\"event\":";
}

void stored_form::append(std::string& line, const sink_entry& entry) const {
  const made_entry& made = entry.made;
  line += start_;
  append_json_number(line, made.entry.GetEntryID());
  if (made.event != nullptr && !made.event->name.empty()) {
    line += ",\"name\":";
    append_json_text(line, made.event->name);
  }
  line += ",\"level\":";
  append_json_number(line, made.entry.GetLogLevel());
  line += ",\"time\":";
  append_json_time(line, entry.time);
  append_attributes(line, made);
  line += ",\"message_index\":";
  append_json_number(line, made.message_index);
  line += ",\"message\":";
  append_json_text(line, entry.message);
  if (entry.is_message_from_definition) line += ",\"message_from\":\"definition\"";
  line += '}';
}

// Bytes that the line can have at most. An escape is six bytes for one, and names stand there
// twice; what does not come from the record and the message is small.
size_t stored_form::most_bytes(const sink_entry& entry, std::string_view record) const {
  constexpr size_t escape = 6;
  constexpr size_t others = size_t{64} << 10;
  const size_t name = entry.made.event == nullptr ? 0 : entry.made.event->name.size();
  return start_.size() + 2 * escape * record.size() + escape * (entry.message.size() + name) +
         others;
}

void stored_form::require_readable(const sink_entry& entry, std::string_view record) const {
  if (most_bytes(entry, record) <= stored_record_size_limit) return;
  std::string line;
  append(line, entry);
  if (line.size() > stored_record_size_limit)
    throw record_error(
        record_fault::message, record,
        {0, "its stored form would have " + std::to_string(line.size()) + " bytes, and at most " +
                std::to_string(stored_record_size_limit) + " are read again"});
}
