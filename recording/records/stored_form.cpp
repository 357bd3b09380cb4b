#include "recording/records/stored_form.h"

#include <utility>
#include <vector>

#include "logging/logentry_i.h"
#include "recording/definitions/built_in_attributes.h"
#include "recording/definitions/types.h"
#include "recording/records/values.h"
#include "recording/text/escape.h"
#include "recording/text/json_text.h"

// --- What the lines of an event have in common ---

// How entries look an attribute up, and what is stored of it whatever its value is.
struct stored_form::stored_attribute {
  _kp_LOG_hashed_name name;
  unsigned chain;      // of the name
  bool is_own_time;    // of the entry: held by all
  unsigned char code;  // of the type
  value_writer* put;   // a value of that type; null: entries hold none
  line_piece key;      // ,"NAME":
  std::string type;    // "NAME":"TYPE"

  explicit stored_attribute(const known_attribute& known)
      : name(known.name.c_str()),
        chain(_kp_LOG_attribute_store::chain_of(name.hash)),
        is_own_time(known.name == own_time_attribute && is_time_attribute(known.type)),
        code(static_cast<unsigned char>(known.type)),
        put(value_writer_of(code)),
        key("," + json_string(known.name) + ":"),
        type(json_string(known.name) + ":" + json_string(short_type_name(known.type))) {}
};

struct stored_form::stored_event {
  using held_attributes = std::vector<const stored_attribute*>;

  line_piece start;  // 1001,"name":"USER_LOGIN"
  std::vector<stored_attribute> attributes;
  // Those that the last entry held, and what is stored of their types. Most entries hold the same.
  held_attributes told;
  std::string types;
  held_attributes held;  // likewise, while an entry is stored

  explicit stored_event(const known_event& known)
      : start(std::to_string(known.id) +
              (known.name.empty() ? "" : ",\"name\":" + json_string(known.name))),
        attributes(known.attributes.begin(), known.attributes.end()) {
    told.reserve(attributes.size());
    held.reserve(attributes.size());
  }
  const std::string& types_of_held();
};

const std::string& stored_form::stored_event::types_of_held() {
  if (held == told) return types;
  std::string made;
  for (const stored_attribute* attribute : held)
    (made += made.empty() ? "" : ",") += attribute->type;
  types = std::move(made);
  told = held;
  return types;
}

stored_form::stored_event& stored_form::stored(const known_event& event) {
  if (last_ == nullptr || last_->first != &event)
    last_ = &*events_.try_emplace(&event, event).first;
  return last_->second;
}

// --- The attributes of an entry ---

// Appends the key and the value where the attribute is held.
inline void stored_form::append_held(const stored_attribute& attribute,
                                     const kp_LOG_LogEntry& entry, stored_event& event) {
  const auto* const held = entry._get_imp()._attributes().find(attribute.name, attribute.chain);
  const bool is_held = held != nullptr && held->value->get_type() == attribute.code;
  if (!attribute.is_own_time && (!is_held || attribute.put == nullptr)) return;
  line_.append(attribute.key, event.held.empty() ? 1 : 0);  // the first without its comma
  event.held.push_back(&attribute);
  if (attribute.is_own_time)
    append_time(entry.GetAttribTime(attribute.name.text));
  else
    attribute.put(line_, *held->value);
}

void stored_form::append_attributes(stored_event* event, const made_entry& made) {
  if (made.is_lost()) return append_lost_attributes(line_, made.lost);
  line_.append(",\"attributes\":{");
  if (event != nullptr) {
    event->held.clear();
    for (const stored_attribute& attribute : event->attributes)
      append_held(attribute, made.entry, *event);
  }
  line_.append("},\"types\":{");
  if (event != nullptr) line_.append(event->types_of_held());
  line_.append('}');
}

// --- The whole ---

stored_form::stored_form(const std::string& set_version) : start_(stored_record_start) {
  json_text(start_).text(set_version).key("event");
}

stored_form::~stored_form() = default;

void stored_form::append_time(const kp_Time& time) {
  line_.append('"');
  line_.append(time_text_.of(time));
  line_.append('"');
}

void stored_form::append(std::string& lines, const sink_entry& entry) {
  const made_entry& made = entry.made;
  stored_event* const event = made.event == nullptr ? nullptr : &stored(*made.event);
  line_.clear();
  line_.append(start_);
  if (event != nullptr)
    line_.append(event->start);
  else
    line_.append_number(made.entry.GetEntryID());
  line_.append(",\"level\":");
  line_.append_number(made.entry.GetLogLevel());
  line_.append(",\"time\":");
  append_time(entry.time);
  origin_text_.append(line_, made.origin);
  append_attributes(event, made);
  line_.append(",\"message_index\":");
  line_.append_number(made.message_index);
  line_.append(",\"message\":");
  append_json_text(line_, entry.message);
  if (entry.is_message_from_definition) line_.append(",\"message_from\":\"definition\"");
  line_.append('}');
  lines.append(line_.text());
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

void stored_form::require_readable(const sink_entry& entry, std::string_view record) {
  if (most_bytes(entry, record) <= stored_record_size_limit) return;
  std::string line;
  append(line, entry);
  if (line.size() > stored_record_size_limit)
    throw record_error(
        "record-message"_rule,
        {0, "its stored form would have " + std::to_string(line.size()) + " bytes, and at most " +
                std::to_string(stored_record_size_limit) + " are read again"});
}
