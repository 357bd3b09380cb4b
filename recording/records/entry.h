// Records as log entries.
#ifndef RECORDING_RECORDS_ENTRY_H
#define RECORDING_RECORDS_ENTRY_H

#include <optional>
#include <string>
#include <string_view>

#include "kp_LOG_LogEntry.h"
#include "recording/records/event_set.h"
#include "recording/records/lost.h"
#include "recording/records/origin.h"
#include "recording/records/parser.h"

// The event that a record names by its name or ID; null when the set has none, or several.
const known_event* find_event(const event_set& events, const record_value& event);

// The level of what tells none.
constexpr unsigned default_record_level = 3;

// An entry made of a record.
struct made_entry {
  kp_LOG_LogEntry entry;
  const known_event* event = nullptr;  // null: nothing was made yet
  unsigned message_index = 0;
  record_origin origin;  // its texts live as long as those of the record, or until the next one
  lost_events lost;      // what kplog.lost says; its entry has no definition, and no attributes

  // Whether it is kplog.lost, which passes every filter and is not counted.
  bool is_lost() const { return event != nullptr && event->id == 0 && event == &lost_event(); }
};

// Makes it kplog.lost, of now and without an origin. `reason` has at most 64 characters. Raises
// what an entry's constructor raises.
void make_lost_entry(made_entry& made, uint32_t count, std::string_view reason,
                     unsigned level = default_record_level);

class entry_maker {
 public:
  explicit entry_maker(const event_set& events) : events_(events) {}

  // What "now" is from here on; nothing, as at first: the time at which an entry is made.
  void set_now(const std::optional<kp_Time>& now) { now_ = now; }
  // Makes the entry of `record`. The level is 3 and the time is now where the record says nothing;
  // the time keeps the zone that the record tells it in. With a fraction of a second it is what was
  // recorded, unless the record says that itself. The result lives until the next call, its
  // origin as long as the record's. Raises record_error: for an event that is not known or named
  // twice, an attribute that the event does not declare, a value that its type does not hold.
  // Raises KPX_memory_alloc.
  const made_entry& make(const parsed_record& record);
  // The same without raising record_error, which would cost several times what a record does: null,
  // and why in error().
  const made_entry* try_make(const parsed_record& record);
  const record_error& error() const { return *error_; }

 private:
  const known_event* event_of(const parsed_record& record);
  bool has_own_name(const known_event& event, const record_value& name);
  bool make_entry(const known_event& event, const parsed_record& record);
  bool set_header(const parsed_record& record);
  bool make_lost(const parsed_record& record);
  bool add_to_lost(const record_attribute& attribute);
  bool set_time(const parsed_record& record);
  bool read_time(const record_value& told);
  const known_attribute* known(std::string_view attribute);
  bool add(const record_attribute& attribute);
  void take_recorded();
  kp_Time now() const { return now_ ? *now_ : kp_Time(); }

  const event_set& events_;
  std::optional<kp_Time> now_;
  made_entry made_;
  std::optional<record_error> error_;  // of the record that was refused last
  size_t next_ = 0;        // of the event's attributes: the one that a record most often tells next
  std::string text_;       // a text with its NUL
  std::string time_text_;  // the time that was read last, most often that of the next record
  kp_Time time_;
  std::string fraction_;  // of its second, as ".123", where the record tells one
  std::string recorded_;  // made of these
};

// A readable message in UTF-8.
struct entry_text {
  std::string text;
  bool is_from_definition = false;  // the open catalog lacks it: it is the definition's own text
};

// Raises record_error at the start of the line where the library cannot render it. That of
// kplog.lost is in English.
entry_text entry_message(const made_entry& made);

// An entry as sinks take it.
struct sink_entry {
  const made_entry& made;
  std::string_view message;  // rendered, in UTF-8
  // As the record tells it. The day of dated logs and the time that is shown are both from it.
  kp_Time time;
  bool is_message_from_definition = false;  // because the catalog lacks it
};

#endif
