#include "recording/records/lost.h"

#include "recording/text/escape.h"
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

void append_lost_attributes(line_writer& line, const lost_events& lost) {
  line.append(",\"attributes\":{\"COUNT\":");
  line.append_number(lost.count);
  line.append(",\"REASON\":");
  append_json_text(line, lost.reason);
  line.append("},\"types\":{\"COUNT\":\"UInt4\",\"REASON\":\"MBChar64\"}");
}
