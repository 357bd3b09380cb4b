// Files of a folder that several processes write to in turn, each under the folder's lock; and
// whole lines at their ends (docs/text-logs.md).
#ifndef RECORDING_FILES_SHARED_FILE_H
#define RECORDING_FILES_SHARED_FILE_H

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/files/delivery_note.h"
#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"
#include "recording/files/folder_lock.h"
#include "recording/files/joint_batch.h"
#include "recording/files/line_tail.h"
#include "recording/files/path.h"
#include "recording/files/ring_start.h"

struct append_rules {
  bool synced = false;               // to the disk itself, not only to the system
  std::string_view line_start = {};  // how every line of the files begins; empty: anyhow
  file_report report = {};           // of what others left behind; empty: to standard error
  lock_waiting waiting = {};
};

// The report, or one to standard error where it is empty.
file_report report_or_standard_error(file_report report);

// Appends to files of one folder while it holds their lock. Without commit() everything is taken
// back when it dies. Files are opened by their names for each batch, so that one that was renamed,
// removed, replaced or cut short since the last batch is no special case. They are regular files
// with one name, no locks, made with mode 0640 whatever the umask. Every operation raises
// file_error.
class append_batch {
 public:
  // Waits for the lock of `name` in the folder, and clears up behind a process that died under it.
  // A batch of a ring's events is noted in the lock, each file before it is appended to. Where it
  // is a part of a joint one, that has the lock, and takes back.
  append_batch(const std::string& folder, const std::string& name, append_rules rules,
               const delivery* of = nullptr);
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
  // Leaves what was appended where it is, and tells the ring whose events it is.
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

  bool is_joint() const { return delivery_ != nullptr && delivery_->joint != nullptr; }
  folder_lock& take_lock(const std::string& folder, const std::string& name);
  bool open_with(const std::string& name, int flags);
  void go_on_with(open_descriptor file, const std::string& name, bool is_new);
  void finish_file();
  void note(std::string_view lines);
  void finish_delivery() noexcept;
  void take_back() noexcept;
  bool take_back(const touched_file& touched, int file) const noexcept;  // false: it failed

  append_rules rules_;
  const delivery* delivery_;  // null: the events are no ring's
  std::optional<delivery_note_lines> note_lines_;
  std::optional<folder_lock> own_lock_;
  folder_lock& lock_;
  open_descriptor file_;  // the last of touched_
  uintmax_t size_ = 0;
  std::vector<touched_file> touched_;
};

// A file of lines that several processes append to.
class line_file {
 public:
  // Cuts off what a process that died, or a power cut, left behind the last line of the file, which
  // is to have at most `most` bytes. It is not made yet. Raises file_error.
  line_file(const std::string& path, append_rules rules, uintmax_t most = UINTMAX_MAX);

  // Appends the lines under the file's lock, and empties the text, at the end of a joint batch
  // where it is one's. From the first line on for which there is no room they are left out. Raises
  // file_error: both are then as they were.
  void append(std::string& lines, bool synced, const delivery* of = nullptr);
  // Of the last lines that were appended so many were left out.
  size_t left_out() const { return left_out_; }

 private:
  file_place place_;
  append_rules rules_;
  uintmax_t most_;
  size_t left_out_ = 0;
};

#endif
