// Messages made safe for one line of a log.
#ifndef TOOLS_LOG_TEXT_H
#define TOOLS_LOG_TEXT_H

#include <memory>
#include <string>
#include <string_view>

// Appends `text`, UTF-8, to `line`: control characters but the tab, line and paragraph separators,
// bidirectional controls and bytes that are no UTF-8 as \xNN or \u{N}. A backslash stays as it is:
// the result is for reading.
void append_log_text(std::string& line, std::string_view text);

// Converts lines from UTF-8 to a code page; what it lacks is written as \u{N}.
class log_code_page {
 public:
  // Empty and "UTF-8": nothing to convert. Raises std::invalid_argument for a code page that ICU
  // does not know, for one that lacks characters of ASCII, and for one in which the end of a line
  // is not the byte 0A or that byte may be part of another character.
  explicit log_code_page(const std::string& name);
  ~log_code_page();

  // Appends the line, which append_log_text has made, to `out`.
  void append(std::string& out, std::string_view line);

  struct converter;

 private:
  std::unique_ptr<converter> converter_;  // null: UTF-8
};

#endif
