// Which events a recorder takes, as one number that calls can ask without a lock.
#ifndef RECORDER_FILTER_RULE_H
#define RECORDER_FILTER_RULE_H

#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "kp_LOG_EntryFilter.h"

// The library's filter, set by a section of a settings file. The library's settings are those of
// the calling thread.
class filter_rule {
 public:
  // Empty: every event passes.
  filter_rule(std::string settings, std::string section);

  // Whether the file is another one than when it was read last.
  bool has_changed() const noexcept;
  // Reads the file. Raises file_error where it cannot be read.
  void read();
  // As _kp_LOG_recorder_gate::accepted has it.
  uint64_t rule() const;

 private:
  std::string settings_;
  std::string section_;
  struct stat seen_ {};
  _kp_LOG_entry_filter filter_;
};

#endif
