#include "tools/find/event_name.h"

#include "recording/records/entry.h"

std::string event_name_of(const parsed_record& record, const event_set& events) {
  const known_event* const event = find_event(events, record.event);
  if (event != nullptr) return event->name.empty() ? std::to_string(event->id) : event->name;
  return std::string(record.name ? record.name->text : record.event.text);
}
