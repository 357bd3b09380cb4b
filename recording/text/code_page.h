// Code pages: which characters they hold, and lines of a log in them.
#ifndef RECORDING_TEXT_CODE_PAGE_H
#define RECORDING_TEXT_CODE_PAGE_H

#include <unicode/uset.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

// Whether ICU knows the name.
bool is_known_code_page(const std::string& name);

class code_page_repertoire {
 public:
  // By a name that ICU knows; is_known() says whether it does.
  explicit code_page_repertoire(std::string name);

  const std::string& name() const { return name_; }
  bool is_known() const { return characters_ != nullptr; }
  // The offset of the first character that the code page cannot hold; npos when it holds all.
  size_t first_missing(std::string_view text) const;

 private:
  struct set_closer {
    void operator()(USet* set) const { uset_close(set); }
  };

  std::string name_;
  std::unique_ptr<USet, set_closer> characters_;
};

// Converts lines from UTF-8 to a code page; what it lacks is written as \u{N}.
class log_code_page {
 public:
  // Empty and "UTF-8": nothing to convert. Raises std::invalid_argument for a code page that ICU
  // does not know, for one that lacks characters of ASCII, and for one in which the end of a line
  // is not the byte 0A or that byte may be part of another character.
  explicit log_code_page(const std::string& name);
  ~log_code_page();

  // Appends the line, which append_log_text (recording/text/escape.h) has made, to `out`.
  void append(std::string& out, std::string_view line);

  struct converter;

 private:
  std::unique_ptr<converter> converter_;  // null: UTF-8
};

#endif
