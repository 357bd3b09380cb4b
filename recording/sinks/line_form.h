// How sinks tell an entry in a line.
#ifndef RECORDING_SINKS_LINE_FORM_H
#define RECORDING_SINKS_LINE_FORM_H

#include <memory>
#include <string>

#include "recording/records/entry.h"

// Used by one thread at a time.
class line_form {
 public:
  virtual ~line_form() = default;
  // Appends the entry's line, with its end.
  virtual void append(std::string& lines, const sink_entry& entry) = 0;
  // One of the same kind, for another thread.
  virtual std::unique_ptr<line_form> another() const = 0;
};

// "TIME LEVEL NAME MESSAGE", in the code page; empty: UTF-8. Raises std::invalid_argument for one
// that lines cannot be in.
std::unique_ptr<line_form> make_text_log_form(const std::string& code_page);

// The stored form, of the version of the definitions.
std::unique_ptr<line_form> make_stored_line_form(const std::string& set_version);

// The message alone; the code page as above.
std::unique_ptr<line_form> make_message_form(const std::string& code_page);

#endif
