// What an event is called where people read it.
#ifndef TOOLS_FIND_EVENT_NAME_H
#define TOOLS_FIND_EVENT_NAME_H

#include <string>

#include "recording/records/event_set.h"
#include "recording/records/parser.h"

// The name that the definitions have for the record's event, or the ID where it has none; of an
// event that is not known what the record calls it.
std::string event_name_of(const parsed_record& record, const event_set& events);

#endif
