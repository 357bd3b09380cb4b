// Describing: a record becomes a log entry.
#ifndef PACKAGE_HISTORY_ENTRY_H
#define PACKAGE_HISTORY_ENTRY_H

#include <memory>

#include "history_line.h"
#include "kp_LOG.h"

// The ID of the entries of that kind, as package_history.yaml has it.
unsigned history_entry_id(history_kind kind);

// Makes the entry of a record, with the attributes that package_history.yaml declares for its kind
// and the record's time as its timestamp. Raises KPX_logging_invalid_attribute_value for a text
// that is too long for its attribute, and every other KPX_logging error where the definitions are
// not loaded.
std::unique_ptr<kp_LOG_LogEntry> make_history_entry(const history_record& record);

#endif
