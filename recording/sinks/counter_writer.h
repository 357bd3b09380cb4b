// Counts the entries of a run into a counter file (docs/counter-file.md) that several processes
// share.
#ifndef RECORDING_SINKS_COUNTER_WRITER_H
#define RECORDING_SINKS_COUNTER_WRITER_H

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "base/kp_time.h"
#include "recording/files/dated_name.h"
#include "recording/files/descriptor.h"
#include "recording/files/shared_file.h"
#include "recording/sinks/counter_index.h"

struct counter_place {
  std::string path;    // of the file
  std::string folder;  // as in file_place
  std::string name;    // without its ending
};

// "DIR/NAME", or the file itself, DIR/NAME.cnt.
counter_place counter_place_of(const std::string& path);

class counter_writer {
 public:
  // Raises file_error where the file cannot be made, is no regular file with one name, or no
  // counter file.
  explicit counter_writer(const std::string& path, lock_waiting waiting = {},
                          file_report report = {});

  // Notes one more entry of that day, or so many.
  void add(const kp_Time& day, uint32_t id) { add(day_of(day), id, 1); }
  void add(const log_day& day, uint32_t id, uint64_t count);
  // Adds what was noted to the file, under its lock. Raises file_error: what was not added by then
  // stays noted. Of a ring's events that is all, and the file is as it was before the batch, as far
  // as the system lets it.
  void write(bool synced, const delivery* of = nullptr);

 private:
  void take_lock();
  void write_alone(bool synced, const delivery* of);
  void write_jointly(bool synced, const delivery& of);
  void close_file();
  bool is_open_file(struct stat& status) const;
  void open_file();
  void write_noted(bool synced);
  void write_noted(bool synced, const delivery& of);
  void note(const std::vector<counter_change>& changes, bool synced, const delivery& of);
  void finish(bool synced);

  counter_place place_;
  std::string file_name_;
  lock_waiting waiting_;
  file_report report_;  // of what others left behind; empty: to standard error
  counter_index index_;
  // These stay open from batch to batch: to open them costs more than to count.
  std::optional<folder_lock> lock_;  // taken while a batch is written, unless a joint one's is
  folder_lock* held_ = nullptr;      // the one that is
  bool is_doubtful_ = false;         // a joint batch was begun: it may be taken back
  open_descriptor file_;
  file_identity counter_;                  // of it
  std::map<counter_key, uint64_t> noted_;  // since the last batch
};

#endif
