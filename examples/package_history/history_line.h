// Parsing: a line of dpkg's log becomes a record.
#ifndef PACKAGE_HISTORY_LINE_H
#define PACKAGE_HISTORY_LINE_H

#include <stdexcept>
#include <string>
#include <string_view>

#include "base/kp_time.h"
#include "history_events.h"

// What a line tells.
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

// What selects a message, as package_history.yaml has it.
using history_state = history_events::entry_PACKAGE_STATUS::STATE_value;
using history_command = history_events::entry_DPKG_STARTUP::COMMAND_value;
using history_decision = history_events::entry_CONFIGURATION_FILE::DECISION_value;

// A line, read. A field that lines of its kind do not have keeps its default.
struct history_record {
  history_kind kind = history_kind::install;
  kp_Time time;           // told in local time
  std::string subject;    // the package with its architecture, or the configuration file's path
  std::string installed;  // the version that is there; "<none>" for none, as dpkg writes it
  std::string available;  // the version that the action brings
  history_state state{};
  history_command command{};
  history_decision decision{};
};

// A line that is not understood; the text says why.
class history_line_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads a line without its end. Raises history_line_error.
history_record parse_history_line(std::string_view line);

#endif
