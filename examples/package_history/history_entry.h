// Describing: a record becomes a log entry.
#ifndef PACKAGE_HISTORY_ENTRY_H
#define PACKAGE_HISTORY_ENTRY_H

#include <memory>

#include "history_line.h"
#include "kp_LOG.h"

// Makes the entry of a record: an object of its event's class, with the record's time as its
// timestamp. A shared_ptr remembers that class, whose destructor is not virtual. Raises
// KPX_logging_invalid_attribute_value for a text that is too long for its attribute, and every
// other KPX_logging error where the definitions are not loaded.
std::shared_ptr<kp_LOG_LogEntry> make_history_entry(const history_record& record);

#endif
