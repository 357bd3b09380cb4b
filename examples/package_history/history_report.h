// Printing: a package history as messages in several languages, and as a table.
#ifndef PACKAGE_HISTORY_REPORT_H
#define PACKAGE_HISTORY_REPORT_H

#include <array>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "history_line.h"
#include "kp_LOG.h"

// A line that gives no message.
struct history_fault {
  size_t line;  // from 1
  std::string why;
};

// A whole history, read.
struct package_history {
  size_t n_lines = 0;
  std::vector<std::unique_ptr<kp_LOG_LogEntry>> entries;  // of the lines understood, in their order
  std::array<size_t, history_kind_count> counts{};        // of them, by history_kind
  std::vector<history_fault> faults;                      // the other lines
};

// Renders every entry in English, German and Japanese, with the catalogs in the folder `catalogs`,
// and prints the last `n_shown` messages of each language. Leaves the last language's locale and
// catalog set. Raises KPX_logging_missing_resource where a catalog or a message is missing.
void print_history_messages(std::ostream& out, const package_history& history,
                            const std::string& catalogs, size_t n_shown);

// Prints how many events there are of each kind, and every line that gives no message.
void print_history_table(std::ostream& out, const package_history& history);

#endif
