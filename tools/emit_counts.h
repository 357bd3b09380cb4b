// Counts of written entries in a counter file (docs/counter-file.md) that several processes share.
#ifndef TOOLS_EMIT_COUNTS_H
#define TOOLS_EMIT_COUNTS_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "base/kp_time.h"
#include "kp_LOG_EntryCounter.h"
#include "tools/counter_file.h"

struct counter_place {
  std::string path;    // of the file
  std::string folder;  // as in file_place
  std::string name;    // without its ending
};

// "DIR/NAME", or the file itself, DIR/NAME.cnt.
counter_place counter_place_of(const std::string& path);

class emit_counts {
 public:
  // Raises sink_error where the file cannot be made, and where it is no regular file.
  explicit emit_counts(const std::string& path);

  // Notes one more entry of that day.
  void add(const kp_Time& day, uint32_t id);
  // Adds what was noted to the file, under its lock. Raises sink_error.
  void write(bool synced);

 private:
  struct key {
    counter_day day;
    uint32_t id = 0;

    auto operator<=>(const key&) const = default;
  };

  struct noted_count {
    uint64_t added = 0;
    uint64_t present = 0;   // in the file
    bool is_found = false;  // there
  };

  void prepare_file(int folder) const;
  void open(_kp_LOG_EntryCounter& counter) const;
  void find_present_counts(int file);
  void take_present_counts(std::string_view records);
  void update(_kp_LOG_EntryCounter& counter, bool synced);
  [[noreturn]] void fail(int error) const;

  counter_place place_;
  std::map<key, noted_count> noted_;  // since the last batch
};

#endif
