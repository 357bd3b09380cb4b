// Lines in dated files, a new one each day and at a size: text logs and journals
// (docs/text-logs.md).
#ifndef RECORDING_SINKS_DATED_LINES_H
#define RECORDING_SINKS_DATED_LINES_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "recording/files/dated_name.h"
#include "recording/files/shared_file.h"

// Which files: "FOLDER/NAME.YYYYMMDD.NNNN" with the ending.
struct dated_place {
  std::string folder;
  std::string name;  // safe as part of a file name
  std::string_view ending = {};
  uintmax_t max_size = 0;  // bytes that a file has at most
};

// Gathers lines by their days, and appends them under the lock of the name. Used by one thread at a
// time; what is raised is file_error.
class dated_lines {
 public:
  // Clears up behind a process that died under the lock.
  dated_lines(dated_place place, append_rules rules);

  // The lines of the day, to be appended to until the next call. Whoever does counts the bytes.
  std::string& lines_of(const log_day& day);
  void count(size_t bytes) { pending_ += bytes; }
  size_t pending() const { return pending_; }

  // As record_sink::write.
  void write(bool synced, const delivery* of);
  // Forgets which files it wrote to last.
  void reopen() { serials_.clear(); }
  // Files that were gone on to because the ones before were full or a day began, so far.
  uint64_t files_begun() const { return files_begun_; }

 private:
  // One of a day's files.
  struct serial_number {
    unsigned number = 0;     // from 1
    bool is_closed = false;  // there is a compressed form of it: nothing is written to it any more

    auto operator<=>(const serial_number&) const = default;
  };

  std::string file_name(const log_day& day, unsigned serial) const;
  void take_name(std::string_view name);
  void read_folder(const append_batch& batch);
  void open_last(append_batch& batch, const log_day& day);
  void open_next(append_batch& batch, const log_day& day);
  size_t part_that_fits(std::string_view lines, uintmax_t size) const;
  void append(append_batch& batch, const log_day& day, std::string_view lines);
  void forget_lines();

  dated_place place_;
  append_rules rules_;

  std::map<log_day, std::string> days_;                        // the lines gathered
  std::string spare_;                                          // memory for those of the next day
  std::pair<const log_day, std::string>* last_day_ = nullptr;  // of days_, or null
  size_t pending_ = 0;

  std::map<log_day, serial_number> serials_;  // of the files last written to; number 0: not known
  bool is_folder_read_ = false;               // in this batch: its days not known have no file
  uint64_t files_begun_ = 0;
};

#endif
