#include "recording/records/view.h"

#include "recording/text/escape.h"

// --- The message

// Without one there would be nothing of the record on its line.
std::string record_view::message_of(const parsed_record& record) {
  const made_entry& made = maker_.make(record);
  entry_text message = entry_message(made);
  if (message.text.empty()) throw record_error("record-message"_rule, {0, "its message is empty"});
  if (message.is_from_definition) report_(*made.event);
  return std::move(message.text);
}

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

// --- The line

record_shown record_view::append(std::string& lines, std::string_view line) {
  const parsed_record& record = parser_.parse(line);
  record_shown shown = record_shown::message;
  line_.clear();
  try {
    append_log_text(line_, message_of(record));
  } catch (const record_error& error) {
    shown = record_shown::mark;
    append_log_text(line_, mark_of(record, error));
    for (const record_attribute& attribute : record.attributes)
      append_log_text(line_, " " + shown_attribute(attribute));
  }
  code_page_.append(lines, line_);
  lines += '\n';
  return shown;
}
