// Bad lines, kept for somebody to look at.
#ifndef TOOLS_RECORD_QUARANTINE_H
#define TOOLS_RECORD_QUARANTINE_H

#include <string>
#include <string_view>

#include "tools/append_batch.h"

class record_quarantine {
 public:
  // Cuts off what a process that died left unfinished in the file, and reports that. Raises
  // sink_error where the file cannot be made.
  record_quarantine(const std::string& path, decltype(append_rules::report) report);

  // Gathers a line, which is without its end.
  void add(std::string_view line);
  // Appends what was gathered to the file, under its lock. Raises sink_error.
  void write(bool synced);

 private:
  std::string folder_;
  std::string name_;
  decltype(append_rules::report) report_;
  std::string pending_;
};

#endif
