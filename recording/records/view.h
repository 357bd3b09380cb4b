// Records as lines for people: their messages, or what they hold where there is no message.
#ifndef RECORDING_RECORDS_VIEW_H
#define RECORDING_RECORDS_VIEW_H

#include <functional>
#include <string>
#include <string_view>

#include "recording/records/entry.h"
#include "recording/records/event_set.h"
#include "recording/records/parser.h"
#include "recording/text/code_page.h"

// How a record was shown.
enum class record_shown {
  message,
  mark  // what it holds, behind a mark in brackets that says why
};

class record_view {
 public:
  // Told of an event whose message is the definition's own text, because the catalog lacks it.
  using lack_report = std::function<void(const known_event& event)>;

  // The events must live as long as the view. Raises what log_code_page raises.
  record_view(const event_set& events, const std::string& code_page, lack_report report)
      : events_(events), maker_(events), code_page_(code_page), report_(std::move(report)) {}

  // Appends the record on `line` as one line, with its end. An event that is not known, one that
  // does not declare what the record has, and a message that is empty, or that cannot be rendered,
  // give
  //   [unknown event 4711] PORT=51234 USER_NAME="alice"
  // with the attributes as the record has them. Raises record_error, having appended nothing, for
  // what is no record.
  record_shown append(std::string& lines, std::string_view line);

 private:
  std::string message_of(const parsed_record& record);
  std::string mark_of(const parsed_record& record, const record_error& error) const;

  const event_set& events_;
  record_parser parser_;
  entry_maker maker_;
  log_code_page code_page_;
  lack_report report_;
  std::string line_;  // reused
};

#endif
