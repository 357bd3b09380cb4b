// Lines of a log in its code page.
#ifndef RECORDING_TEXT_CODE_PAGE_H
#define RECORDING_TEXT_CODE_PAGE_H

#include <memory>
#include <string>
#include <string_view>

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
