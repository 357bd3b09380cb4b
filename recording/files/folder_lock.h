// The lock under which processes write to files of a folder in turn (docs/text-logs.md).
#ifndef RECORDING_FILES_FOLDER_LOCK_H
#define RECORDING_FILES_FOLDER_LOCK_H

#include <sys/stat.h>

#include <functional>
#include <string>
#include <string_view>

#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"

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

// The descriptor of a lock's file. A child of fork has none of those that its parent had: it would
// hold their locks for as long as it lives, whatever becomes of the parent.
class lock_descriptor {
 public:
  lock_descriptor() = default;
  ~lock_descriptor() { close(); }
  lock_descriptor(const lock_descriptor&) = delete;
  lock_descriptor& operator=(const lock_descriptor&) = delete;

  // In place of what was open; false, with errno, where that fails.
  bool open(int folder, const std::string& name, int flags, mode_t mode = 0);
  void close();
  bool is_open() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }

 private:
  static void close_in_child();

  int descriptor_ = -1;
  lock_descriptor* next_ = nullptr;  // of those that are open
  lock_descriptor* previous_ = nullptr;
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
  // somebody wrote there; of one that is longer than any that is written, the beginning.
  static constexpr size_t longest_note = size_t{16} << 20;
  const std::string& read_note() const { return note_; }
  void write_note(const std::string& note);  // empty: none
  // Behind what is noted; on the disk itself when `synced`.
  void add_to_note(const std::string& text, bool synced);
  // Takes the note away, for good.
  void clear_note();
  // Whether the user who runs this program made the lock, so that nobody else wrote the note but
  // the system's administrator.
  bool is_own() const { return owner_ == geteuid(); }

 private:
  explicit folder_lock(const file_place& place);
  void open_folder();
  bool take(const lock_waiting& waiting);
  bool take_open_file(const lock_waiting& waiting);
  bool open_file();
  void wait(const lock_waiting& waiting) const;
  std::string content(const struct stat& status, size_t size) const;
  void refuse_what_is_no_lock() const;
  void set_up(const struct stat& status);
  void write(std::string_view text, off_t at) const;

  std::string folder_;
  std::string name_;
  std::string lock_name_;
  open_descriptor folder_descriptor_;
  lock_descriptor lock_descriptor_;
  file_identity folder_file_;  // asked for when the lock is released first
  file_identity lock_file_;
  bool is_made_ = false;  // by this process, and not kept yet
  bool is_held_ = false;
  uid_t owner_ = 0;   // of the file
  std::string note_;  // in the file
};

#endif
