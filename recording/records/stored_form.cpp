#include "recording/records/stored_form.h"

#include "recording/definitions/types.h"
#include "recording/records/values.h"
#include "recording/text/json_text.h"

// Appends "NAME":VALUE and, to `types`, "NAME":"TYPE", when the attribute is held.
static void append_member(std::string& line, std::string& types, const made_entry& made,
                          const known_attribute& attribute) {
  const size_t before = line.size();
  json_text json(line);
  json.key(attribute.name);
  const size_t behind_key = line.size();
  if (!append_held_value(json, made.entry, attribute)) return line.resize(before);
  const size_t key = line[before] == ',' ? before + 1 : before;
  json_text(types)
      .written(std::string_view(line).substr(key, behind_key - key))
      .text(short_type_name(attribute.type));
}

static void append_attributes(std::string& line, const made_entry& made) {
  if (made.is_lost()) return append_lost_attributes(line, made.lost);
  std::string types;
  json_text json(line);
  json.key("attributes").begin_object();
  if (made.event != nullptr)
    for (const known_attribute& attribute : made.event->attributes)
      append_member(line, types, made, attribute);
  json.end_object().key("types").begin_object().written(types).end_object();
}

// --- The whole ---

stored_form::stored_form(const std::string& set_version) : start_(stored_record_start) {
  json_text(start_).text(set_version).key("event");
}

void stored_form::append(std::string& line, const sink_entry& entry) const {
  const made_entry& made = entry.made;
  line += start_;
  json_text json(line);
  json.number(made.entry.GetEntryID());
  if (made.event != nullptr && !made.event->name.empty()) json.key("name").text(made.event->name);
  json.key("level").number(made.entry.GetLogLevel());
  append_value(json.key("time"), entry.time);
  append_origin(line, made.origin);
  append_attributes(line, made);
  json.key("message_index").number(made.message_index).key("message").text(entry.message);
  if (entry.is_message_from_definition) json.key("message_from").text("definition");
  json.end_object();
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
        "record-message"_rule,
        {0, "its stored form would have " + std::to_string(line.size()) + " bytes, and at most " +
                std::to_string(stored_record_size_limit) + " are read again"});
}
