#include "recording/records/lost.h"

#include "recording/definitions/types.h"
#include "recording/text/json_text.h"
#include "recording/text/words.h"

// Never destroyed: a recorder of static lifetime may tell what it lost as the process ends.
const known_event& lost_event() {
  static const known_event& event = *new known_event{
      .id = 0,
      .name = "kplog.lost",
      .attributes = {{lost_count_attribute, TypeUInt4}, {lost_reason_attribute, TypeMBChar64}}};
  return event;
}

std::string lost_message(const lost_events& lost) {
  return counted(lost.count, "event") + (lost.count == 1 ? " was" : " were") +
         " lost: " + lost.reason;
}

void append_lost_attributes(std::string& line, const lost_events& lost) {
  json_text json(line);
  json.key("attributes").begin_object();
  json.key(lost_count_attribute).number(lost.count).key(lost_reason_attribute).text(lost.reason);
  json.end_object().key("types").begin_object();
  for (const known_attribute& attribute : lost_event().attributes)
    json.key(attribute.name).text(short_type_name(attribute.type));
  json.end_object();
}
