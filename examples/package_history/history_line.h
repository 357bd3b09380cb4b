// Parsing: a line of dpkg's log becomes a record.
#ifndef PACKAGE_HISTORY_LINE_H
#define PACKAGE_HISTORY_LINE_H

#include <stdexcept>
#include <string>
#include <string_view>

#include "base/kp_time.h"

// What a line tells, in the order of the closing table.
enum class history_kind {
  install,
  upgrade,
  configure,
  trigproc,
  remove,
  purge,
  disappear,
  status,
  startup,
  conffile
};
constexpr size_t history_kind_count = 10;

// The word by which dpkg names the kind.
std::string_view history_kind_word(history_kind kind);

// A line, read. A field that lines of its kind do not have stays empty.
struct history_record {
  history_kind kind = history_kind::install;
  kp_Time time;              // told in local time
  std::string subject;       // the package with its architecture, or the configuration file's path
  std::string installed;     // the version that is there; "<none>" for none, as dpkg writes it
  std::string available;     // the version that the action brings
  unsigned char choice = 0;  // status, startup, conffile: place of the state, command or decision
};

// A line that is not understood; the text says why.
class history_line_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads a line without its end. Raises history_line_error.
history_record parse_history_line(std::string_view line);

#endif
