// An entry's own time, and the attributes that it holds.
#ifndef KP_LOG_ENTRYACCESS_H
#define KP_LOG_ENTRYACCESS_H

#include <functional>

#include "base/kp_export.h"
#include "base/kp_time.h"
#include "kp_LOG_AttributeType.h"

class kp_LOG_LogEntry;

// Makes `time` the entry's timestamp, told in GMT or local time as it is. An entry that nobody
// stamps has the time at which it was made.
// The zone goes into two attributes, TIMEZONE_DIFFERENCE (TypeSInt2: minutes, local time minus GMT;
// the hour of daylight time counts in local mode only) and DAYLIGHT_SAVING_ACTIVE (TypeBool), each
// written when it differs from the entry's last one. Both have to be declared, by the entry's
// definition or for all entries; otherwise it raises what AddAttrib2 and AddAttribBool raise
// (KPX_logging_invalid_attribute_name, KPX_logging_attribute_type_mismatch, KPX_logging_misc for an
// entry without a definition), and the timestamp itself has changed all the same.
KP_API void kp_LOG_SetTime(kp_LOG_LogEntry& entry, const kp_Time& time);

// Calls `visitor` for each attribute that the entry holds, in no particular order; what is only
// declared is left out. `type` is the type of the value, so that the getter for it is known; `name`
// lives until the attribute is removed or the entry dies. The visitor may read the entry and must
// not change it. What it raises passes through.
KP_API void kp_LOG_ForEachAttribute(
    const kp_LOG_LogEntry& entry,
    const std::function<void(const char* name, kp_AttributeType type)>& visitor);

#endif
