// "kplog.lost": the event by which a recorder tells how many events it lost. Records may name it
// whatever the definitions are, unless these have an event 0 of their own.
#ifndef RECORDING_RECORDS_LOST_H
#define RECORDING_RECORDS_LOST_H

#include <cstdint>
#include <string>

#include "recording/records/event_set.h"
#include "recording/text/line_writer.h"

inline constexpr char lost_count_attribute[] = "COUNT";
inline constexpr char lost_reason_attribute[] = "REASON";

// Event 0. It lives to the end of the process.
const known_event& lost_event();

// What such an event says.
struct lost_events {
  uint32_t count = 0;
  std::string reason;  // UTF-8, of at most 64 UTF-16 code units
};

// "17 events were lost: full"
std::string lost_message(const lost_events& lost);

// Appends the members "attributes" and "types" of the stored form, behind another one.
void append_lost_attributes(line_writer& line, const lost_events& lost);

#endif
