// Records as people are shown them: their messages, or what they hold where there is no message.
#ifndef RECORDING_RECORDS_VIEW_H
#define RECORDING_RECORDS_VIEW_H

#include <string>
#include <string_view>

#include "recording/records/entry.h"
#include "recording/records/event_set.h"
#include "recording/records/parser.h"

// A record on its way to be shown. What it points to lives until the next record is parsed.
struct viewed_record {
  const parsed_record& record;
  const made_entry* made = nullptr;  // null: no entry can be made of it, or no message of that
  std::string_view text;  // in UTF-8, as it is: the message, or what the record holds behind a mark
  bool is_message_from_definition = false;  // because the catalog lacks it
};

class record_view {
 public:
  // The events must live as long as the view.
  explicit record_view(const event_set& events) : events_(events), maker_(events) {}

  // Valid until the next call. Raises record_error for what is no record.
  const parsed_record& parse(std::string_view line) { return parser_.parse(line); }

  // How that record is shown. An event that is not known, one that does not declare what the record
  // has, and a message that is empty, or that cannot be rendered, give
  //   [unknown event 4711] alice came in
  // with the message that the record was stored with; without one the attributes as it has them:
  //   [unknown event 4711] PORT=51234 USER_NAME="alice"
  viewed_record view(const parsed_record& record);

 private:
  std::string mark_of(const parsed_record& record, const record_error& error) const;
  viewed_record view_marked(const parsed_record& record, const record_error& error);

  const event_set& events_;
  record_parser parser_;
  entry_maker maker_;
  std::string text_;  // of the record that was viewed last
};

#endif
