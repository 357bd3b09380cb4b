#include "recording/records/view.h"

#include <utility>

#include "recording/text/escape.h"

// --- What the record holds

static std::string shown_value(const record_value& value) {
  return value.kind == record_value_kind::text ? json_string(value.text) : std::string(value.text);
}

static std::string shown_attribute(const record_attribute& attribute) {
  const std::string_view name = attribute.name;
  const bool is_shown_bare = !name.empty() && name.find_first_of(" \t\"=[]") == name.npos;
  return (is_shown_bare ? std::string(name) : json_string(name)) + "=" +
         shown_value(attribute.value);
}

std::string record_view::mark_of(const parsed_record& record, const record_error& error) const {
  const known_event* const event = find_event(events_, record.event);
  if (event != nullptr) {
    const std::string name = event->name.empty() ? "" : " " + event->name;
    return "[event " + std::to_string(event->id) + name + ": " + error.text() + "]";
  }
  const bool is_ambiguous =
      record.event.kind == record_value_kind::text && events_.is_ambiguous(record.event.text);
  const std::string name = record.name.has_value() ? " " + shown_value(*record.name) : "";
  return (is_ambiguous ? "[ambiguous event " : "[unknown event ") + shown_value(record.event) +
         name + "]";
}

viewed_record record_view::view_marked(const parsed_record& record, const record_error& error) {
  text_ = mark_of(record, error);
  if (record.message && !record.message->text.empty()) {
    text_.append(" ").append(record.message->text);
    return {record, nullptr, text_};
  }
  for (const record_attribute& attribute : record.attributes)
    text_ += " " + shown_attribute(attribute);
  return {record, nullptr, text_};
}

// --- The whole

// Without a message there would be nothing of the record on its line.
viewed_record record_view::view(const parsed_record& record) {
  const made_entry* const made = maker_.try_make(record);
  if (made == nullptr) return view_marked(record, maker_.error());
  try {
    entry_text message = entry_message(*made);
    if (message.text.empty())
      throw record_error("record-message"_rule, {0, "its message is empty"});
    text_ = std::move(message.text);
    return {record, made, text_, message.is_from_definition};
  } catch (const record_error& error) {
    return view_marked(record, error);
  }
}
