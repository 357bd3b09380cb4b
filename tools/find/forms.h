// The forms in which records are shown.
#ifndef TOOLS_FIND_FORMS_H
#define TOOLS_FIND_FORMS_H

#include <string>
#include <string_view>
#include <vector>

#include "recording/records/origin.h"
#include "recording/records/stored_form.h"
#include "recording/records/time_text.h"
#include "recording/records/view.h"
#include "recording/text/code_page.h"

// In the order of their names: see record_format_names.
enum class record_format { text, log, json, csv, table };

const std::vector<std::string>& record_format_names();
record_format record_format_of(const std::string& name);

// Cells of a table's column of events.
size_t event_column_width(const event_set& events);

class record_form {
 public:
  // The events must live as long as this. `event_width` is that of a table's column. Raises
  // std::invalid_argument for a code page that log_code_page refuses, and for JSON in any but
  // UTF-8. With `has_colors` levels that stand on their own, in text for people, have the colors of
  // a terminal: 0 and 1 red, 2 yellow, from 6 on faint.
  record_form(record_format format, const event_set& events, const std::string& code_page,
              size_t event_width, bool has_colors);

  // Appends what stands before the first record, if anything.
  void append_heading(std::string& lines);
  // Appends the record as one line, on which nothing can steer a terminal:
  //   text   its message
  //   log    time, level, event, message, as text logs have them
  //   table  the same in columns, below a heading
  //   csv    time, level, ID, event, message, and the attributes as JSON, below a heading
  //   json   the stored form, with the message as it is now; a record that is shown by a mark keeps
  //          what it has
  void append(std::string& lines, const viewed_record& viewed);

 private:
  void append_text(const viewed_record& viewed);
  void append_log(const viewed_record& viewed);
  void append_table(const viewed_record& viewed);
  void append_csv(const viewed_record& viewed);
  void append_json(const viewed_record& viewed);
  void append_marked_json(const viewed_record& viewed);
  void append_cell(std::string_view text);
  std::string time_of(const viewed_record& viewed);
  void append_level(const viewed_record& viewed);
  void end_line(std::string& lines);

  record_format format_;
  const event_set& events_;
  bool has_colors_;
  log_code_page code_page_;
  size_t event_width_;
  stored_form stored_;
  record_origin_text origin_text_;
  record_time_text time_text_;
  std::string line_;  // reused
};

#endif
