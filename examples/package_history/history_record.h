// Writing: an entry becomes a record, a line of JSON.
#ifndef PACKAGE_HISTORY_RECORD_H
#define PACKAGE_HISTORY_RECORD_H

#include <string>

#include "kp_LOG.h"

// The record of an entry, without the end of its line: event, level, time and attributes, as
// docs/records.md describes them. Raises std::runtime_error for a text that is not UTF-8.
std::string history_record_of(kp_LOG_LogEntry& entry);

#endif
