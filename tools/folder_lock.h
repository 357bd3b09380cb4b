// A lock that processes which write to the same files of a folder take in turn.
#ifndef TOOLS_FOLDER_LOCK_H
#define TOOLS_FOLDER_LOCK_H

#include <string>

#include "tools/open_descriptor.h"

class folder_lock {
 public:
  // Opens the folder as it is now, and waits until no other process, and no other lock of this one,
  // holds the lock of what is named `name` in it. The lock is on a file, made with mode 0640
  // whatever the umask, which stays: get_plockname(name, "lock"). Raises sink_error.
  folder_lock(const std::string& folder, const std::string& name);

  int folder() const { return folder_descriptor_.get(); }
  std::string path(const std::string& name) const { return folder_ + "/" + name; }

  // A note in the lock's file, for the next holder should this one die.
  std::string read_note() const;
  void write_note(const std::string& note);  // empty: none

 private:
  bool take();

  std::string folder_;
  std::string lock_name_;
  open_descriptor folder_descriptor_;
  open_descriptor lock_descriptor_;
  bool has_note_ = false;
};

#endif
