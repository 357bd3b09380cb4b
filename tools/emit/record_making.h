// From a line to an entry and its message: parsed, made, filtered and rendered.
#ifndef TOOLS_EMIT_RECORD_MAKING_H
#define TOOLS_EMIT_RECORD_MAKING_H

#include <optional>
#include <string>

#include "recording/records/entry.h"
#include "recording/records/input.h"
#include "recording/records/parser.h"
#include "recording/records/stored_form.h"
#include "tools/emit/filter.h"
#include "tools/emit/skew.h"

struct record_rules {
  bool stops = false;  // the first bad record is the last one
  time_skew skew = time_skew(std::nullopt);
};

// Used by one thread at a time; others make records of the same events meanwhile.
class record_making {
 public:
  enum class outcome { passed, rejected, refused };

  // The events and the filter must live as long.
  record_making(const event_set& events, const emit_filter& filter, time_skew skew);

  // Of when records without a time are; as entry_maker::set_now.
  void set_now(const std::optional<kp_Time>& now) { maker_.set_now(now); }
  // What it tells of the line lives as long as that, until the next one. Raises KPX_memory_alloc.
  outcome make(const record_line& line);
  const sink_entry& entry() const { return *entry_; }    // of one that has passed
  const known_event* event() const { return event_; }    // null: none that is known
  const record_error& error() const { return *error_; }  // of one that is refused

 private:
  outcome make_unrefused(const record_line& line);
  outcome refuse(const record_error& error);
  void take_sender(const record_line& line);
  void render(const made_entry& made, std::string_view line);

  const event_set& events_;
  const emit_filter& filter_;
  time_skew skew_;
  record_parser parser_;
  entry_maker maker_;
  stored_form form_;                 // for the size that a record has there
  parsed_record* parsed_ = nullptr;  // null: no JSON object
  const known_event* event_ = nullptr;
  std::string message_;
  std::optional<sink_entry> entry_;
  std::optional<record_error> error_;
};

#endif
