// Whole lines at the ends of files that several processes write to (docs/text-logs.md).
#ifndef RECORDING_FILES_SHARED_FILE_H
#define RECORDING_FILES_SHARED_FILE_H

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/files/descriptor.h"
#include "recording/files/folder_lock.h"

struct append_rules {
  bool synced = false;               // to the disk itself, not only to the system
  std::string_view line_start = {};  // how every line of the files begins; empty: anyhow
  // Told, in one line without its end, of what was cut off behind the last line. Empty: it goes to
  // standard error.
  std::function<void(const std::string& note)> report = {};
  lock_waiting waiting = {};
};

// Appends to files of one folder while it holds their lock. Without commit() everything is taken
// back when it dies. Files are opened by their names for each batch, so that one that was renamed,
// removed, replaced or cut short since the last batch is no special case. They are regular files
// with one name, no locks, made with mode 0640 whatever the umask. Every operation raises
// file_error.
class append_batch {
 public:
  // Waits for the lock of `name` in the folder. Where a process died while it appended to a dated
  // log of that prefix, its unfinished line is cut off.
  append_batch(const std::string& folder, const std::string& name, append_rules rules);
  ~append_batch();
  append_batch(const append_batch&) = delete;
  append_batch& operator=(const append_batch&) = delete;

  int folder() const { return lock_.folder(); }

  // Goes on with this file: it is made where there is none, or the result is false, as before the
  // call. Bytes behind the last end of a line are the unfinished line of a process that died, and
  // zeros what a power cut left: they are cut off. Where they do not look like that, file_error is
  // raised and the file left alone.
  bool open_existing(const std::string& name);
  void open(const std::string& name);
  uintmax_t size() const { return size_; }  // of the file

  void append(std::string_view lines);
  // Leaves what was appended where it is.
  void commit();

 private:
  // A file of this batch as it was before.
  struct touched_file {
    std::string name;
    uintmax_t size;
    dev_t device;
    ino_t number;
    bool is_new;
  };

  bool open_with(const std::string& name, int flags);
  void go_on_with(open_descriptor file, const std::string& name, bool is_new);
  void finish_file();
  void repair_after_death();
  void note(const std::string& name);
  void repair_tail(int file, const std::string& name, uintmax_t& size,
                   std::string_view line_start) const;
  void report(const std::string& note) const;
  void take_back() noexcept;
  bool take_back(const touched_file& touched, int file) const noexcept;  // false: it failed

  append_rules rules_;
  folder_lock lock_;
  open_descriptor file_;  // the last of touched_
  uintmax_t size_ = 0;
  std::vector<touched_file> touched_;
};

#endif
