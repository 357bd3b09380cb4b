#include "tools/emit/skew.h"

#include "recording/text/duration.h"

namespace chrono = std::chrono;

// Spans between times may be longer than a time_point tells in nanoseconds.
bool time_skew::allows(const kp_Time& time) const {
  if (!most_) return true;
  const auto told = chrono::floor<chrono::seconds>(time.to_time_point());
  const auto now = chrono::floor<chrono::seconds>(now_());
  return (told < now ? now - told : told - now) <= *most_;
}

record_error time_skew::fault_of(const parsed_record& record) const {
  return record_error("record-time"_rule,
                      {record.time->offset, "\"time\" lies more than " + duration_text(*most_) +
                                                " from now: " + shown_record_value(*record.time)});
}
