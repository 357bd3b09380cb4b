// A whole package history, read.
#ifndef PACKAGE_HISTORY_H
#define PACKAGE_HISTORY_H

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "history_day.h"
#include "history_line.h"
#include "kp_LOG.h"

// A line that was understood.
struct history_event {
  history_kind kind;
  history_day day;
  std::shared_ptr<kp_LOG_LogEntry> entry;
};

// A line that gives no message.
struct history_fault {
  size_t line;  // from 1
  std::string why;
};

struct package_history {
  size_t n_lines = 0;
  std::vector<history_event> events;  // in the order of their lines
  std::vector<history_fault> faults;  // the other lines
};

// How many events there are, by history_kind.
using history_tally = std::array<size_t, history_kind_count>;

// Reads a log of dpkg. Raises std::runtime_error where the file cannot be read, and the errors of
// make_history_entry that no line is to blame for.
package_history read_package_history(const std::string& path);

#endif
