#include "tools/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>

#include "kp_LOG_filenames.h"
#include "tools/sink_error.h"

static std::string lock_name_of(std::string name) {
  std::string purpose = "lock";
  char lock_name[256];
  get_plockname(name.data(), purpose.data(), lock_name);
  return lock_name;
}

folder_lock::folder_lock(const std::string& folder, const std::string& name)
    : folder_(folder),
      lock_name_(lock_name_of(name)),
      folder_descriptor_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (!folder_descriptor_.is_open()) raise_sink_error("open the folder", folder);
  while (!take()) {
  }
}

// Whoever may read the file can hold the lock, and so keep this program waiting.
static constexpr mode_t lock_mode = S_IRUSR | S_IWUSR | S_IRGRP;

// False when the lock's file was removed, or replaced, while this process waited for it.
bool folder_lock::take() {
  const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  lock_descriptor_ = open_descriptor(openat(folder(), lock_name_.c_str(), flags, lock_mode));
  if (!lock_descriptor_.is_open()) raise_sink_error("open the lock", path(lock_name_));
  while (flock(lock_descriptor_.get(), LOCK_EX) != 0)
    if (errno != EINTR) raise_sink_error("take the lock", path(lock_name_));
  struct stat held {};
  struct stat named {};
  if (fstat(lock_descriptor_.get(), &held) != 0 ||
      fstatat(folder(), lock_name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0)
    return false;
  has_note_ = held.st_size > 0;
  // Another user's lock serves as it is.
  if ((held.st_mode & ALLPERMS) != lock_mode)
    static_cast<void>(fchmod(lock_descriptor_.get(), lock_mode));
  return held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

std::string folder_lock::read_note() const {
  std::array<char, NAME_MAX> note{};
  if (!has_note_) return "";
  const ssize_t size = pread(lock_descriptor_.get(), note.data(), note.size(), 0);
  return size > 0 ? std::string(note.data(), static_cast<size_t>(size)) : "";
}

void folder_lock::write_note(const std::string& note) {
  if (note.empty() && !has_note_) return;
  const ssize_t size = static_cast<ssize_t>(note.size());
  has_note_ = true;
  if (pwrite(lock_descriptor_.get(), note.data(), note.size(), 0) != size ||
      ftruncate(lock_descriptor_.get(), size) != 0)
    raise_sink_error("write the lock", path(lock_name_));
  has_note_ = !note.empty();
}
