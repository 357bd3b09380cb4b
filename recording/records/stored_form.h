// The stored form of entries: one JSON object a line (docs/records.md).
#ifndef RECORDING_RECORDS_STORED_FORM_H
#define RECORDING_RECORDS_STORED_FORM_H

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "recording/records/entry.h"
#include "recording/records/time_text.h"
#include "recording/text/line_writer.h"

// Keeps what the lines of an event have in common: events live, and stay as they are, as long as
// this. Used by one thread at a time.
class stored_form {
 public:
  explicit stored_form(const std::string& set_version);
  ~stored_form();

  // Appends the entry, without an end of line.
  void append(std::string& lines, const sink_entry& entry);

  // Raises record_error where the line of the entry, which was made of `record`, would be longer
  // than lines are read again. Few records cost more than a look at their size.
  void require_readable(const sink_entry& entry, std::string_view record);

 private:
  struct stored_attribute;
  struct stored_event;

  stored_event& stored(const known_event& event);
  void append_time(const kp_Time& time);
  void append_held(const stored_attribute& attribute, const kp_LOG_LogEntry& entry,
                   stored_event& event);
  void append_attributes(stored_event* event, const made_entry& made);
  size_t most_bytes(const sink_entry& entry, std::string_view record) const;

  std::string start_;  // of every line
  std::unordered_map<const known_event*, stored_event> events_;
  std::pair<const known_event* const, stored_event>* last_ = nullptr;  // of these
  record_time_text time_text_;
  record_origin_text origin_text_;
  line_writer line_;  // reused
};

#endif
