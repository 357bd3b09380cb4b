// Bad lines, kept for somebody to look at.
#ifndef RECORDING_SINKS_QUARANTINE_H
#define RECORDING_SINKS_QUARANTINE_H

#include <string>
#include <string_view>

#include "recording/files/line_file.h"

class record_quarantine {
 public:
  // Cuts off what a process that died left unfinished in the file, and reports that. Raises
  // file_error where the file cannot be written.
  record_quarantine(const std::string& path, const append_rules& rules);

  // Gathers a line, which is without its end.
  void add(std::string_view line) { (pending_ += line) += '\n'; }
  // Appends what was gathered to the file, under its lock. Raises file_error.
  void write(bool synced) { file_.append(pending_, synced); }

 private:
  line_file file_;
  std::string pending_;
};

#endif
