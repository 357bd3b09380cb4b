#include "kp_LOG_EntryAccess.h"
#include "kp_LOG_LogEntry.h"
#include "logging/logentry_i.h"

void kp_LOG_SetTime(kp_LOG_LogEntry& entry, const kp_Time& time) {
  entry._get_imp().set_timestamp(time, time.is_GMT_time_mode());
}

void kp_LOG_ForEachAttribute(
    const kp_LOG_LogEntry& entry,
    const std::function<void(const char* name, kp_AttributeType type)>& visitor) {
  entry._get_imp()._for_each_attribute(visitor);
}
