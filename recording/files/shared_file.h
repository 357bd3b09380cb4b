// Files of a folder that several processes write to in turn, each under the folder's lock; and
// whole lines at their ends (docs/text-logs.md).
#ifndef RECORDING_FILES_SHARED_FILE_H
#define RECORDING_FILES_SHARED_FILE_H

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"
#include "recording/files/ring_start.h"

// What a process does while another one holds the lock.
struct lock_waiting {
  // Whether this process is to end. It then waits a second more and gives up. Empty: never.
  std::function<bool()> is_to_end = {};
  // Told what is waited for, once that has taken half a second. Empty: nobody is told.
  std::function<void(const std::string& note)> report = {};
};

// The lock was not had before this process was to end.
class lock_given_up : public file_error {
  using file_error::file_error;
};

// The lock is on a file, get_plockname(name, "lock"), with mode 0600 whatever the umask: whoever
// may read a file can hold its lock. The file begins with a mark, and stays.
class folder_lock {
 public:
  static std::string name_of(const std::string& name);
  // How the file begins. An empty one becomes a lock.
  static constexpr std::string_view mark = "kplog lock\n";
  // Whether the file may be a lock, and begins with the mark.
  static bool is_marked(int file, const std::string& path);

  // Opens the folder as it is now, and waits until no other process, and no other lock of this one,
  // holds the lock of what is named `name` in it. Raises file_error, also where something that is
  // no lock has its name; and lock_given_up.
  folder_lock(const std::string& folder, const std::string& name, const lock_waiting& waiting = {});
  // Removes a file that was made, unless it is kept, or another process holds it by now.
  ~folder_lock();
  folder_lock(const folder_lock&) = delete;
  folder_lock& operator=(const folder_lock&) = delete;

  int folder() const { return folder_descriptor_.get(); }
  const std::string& name() const { return name_; }
  std::string path(const std::string& name) const { return folder_ + "/" + name; }
  void keep() { is_made_ = false; }
  void remove();
  // Leaves the lock to others.
  void release();
  // Takes it again, as a new one would: in the folder that has the path by now, on the file that
  // has the lock's name in it. Where these are the same, nothing is opened.
  void take_again(const lock_waiting& waiting = {});

  // A note in the lock's file, for the next holder should this one die. What is read is whatever
  // somebody wrote there.
  const std::string& read_note() const { return note_; }
  void write_note(const std::string& note);  // empty: none

 private:
  explicit folder_lock(const file_place& place);
  void open_folder();
  bool take(const lock_waiting& waiting);
  bool take_open_file(const lock_waiting& waiting);
  bool open_file();
  void wait(const lock_waiting& waiting) const;
  std::string content() const;
  std::string content(const struct stat& status) const;
  void set_up(const struct stat& status);
  void write(std::string_view text, off_t at) const;

  std::string folder_;
  std::string name_;
  std::string lock_name_;
  open_descriptor folder_descriptor_;
  open_descriptor lock_descriptor_;
  file_identity folder_file_;  // asked for when the lock is released first
  file_identity lock_file_;
  bool is_made_ = false;  // by this process, and not kept yet
  bool is_held_ = false;
  std::string note_;  // in the file
};

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
  // Leaves what was appended where it is, and tells the ring whose events it is.
  void commit(const delivery* of = nullptr);

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

// A file of lines that several processes append to.
class line_file {
 public:
  // Cuts off what a process that died, or a power cut, left behind the last line of the file. It is
  // not made yet. Raises file_error.
  line_file(const std::string& path, append_rules rules);

  // Appends the lines under the file's lock, and empties the text. Raises file_error: both are then
  // as they were.
  void append(std::string& lines, bool synced, const delivery* of = nullptr);

 private:
  file_place place_;
  append_rules rules_;
};

#endif
