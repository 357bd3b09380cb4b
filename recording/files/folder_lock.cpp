#include "recording/files/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <thread>

#include "base/kp_clib.h"
#include "kp_LOG_filenames.h"
#include "recording/text/terminal_text.h"

using lock_clock = std::chrono::steady_clock;

static constexpr std::chrono::milliseconds told_after(500);
static constexpr std::chrono::milliseconds last_patience(1000);  // of a process that is to end
static constexpr std::chrono::milliseconds first_pause(1);
static constexpr std::chrono::milliseconds longest_pause(32);

static constexpr const char* action = "take the lock";

static constexpr mode_t lock_mode = S_IRUSR | S_IWUSR;

static constexpr int lock_flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

std::string folder_lock::name_of(const std::string& name) {
  std::string first = name;
  std::string purpose = "lock";
  char lock_name[256];
  get_plockname(first.data(), purpose.data(), lock_name);
  return lock_name;
}

bool folder_lock::is_marked(int file, const std::string& name) {
  if (!name.ends_with(name_of(""))) return false;
  std::array<char, mark.size()> begin;
  return KP_pread(file, begin.data(), begin.size(), 0) == static_cast<ssize_t>(begin.size()) &&
         std::string_view(begin.data(), begin.size()) == mark;
}

folder_lock::folder_lock(const std::string& folder, const std::string& name,
                         const lock_waiting& waiting)
    : folder_(folder), name_(name), lock_name_(name_of(name)) {
  open_folder();
  while (!take(waiting)) {
  }
}

void folder_lock::open_folder() {
  folder_descriptor_ =
      open_descriptor(KP_open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  folder_file_ = {};
  if (!folder_descriptor_.is_open()) raise_write_error("open the folder", folder_);
}

folder_lock::~folder_lock() {
  if (is_made_ && note_.empty()) remove();
}

// --- The file ---

// False when somebody made, or removed, the file meanwhile.
bool folder_lock::open_file() {
  is_made_ = false;
  lock_descriptor_ = open_descriptor(KP_openat(folder(), lock_name_.c_str(), lock_flags));
  if (lock_descriptor_.is_open()) return lock_file_.take(lock_descriptor_.get());
  if (errno != ENOENT) raise_write_error("open the lock", path(lock_name_));
  lock_descriptor_ = open_descriptor(
      KP_openat(folder(), lock_name_.c_str(), lock_flags | O_CREAT | O_EXCL, lock_mode));
  is_made_ = lock_descriptor_.is_open();
  if (!is_made_ && errno != EEXIST) raise_write_error("open the lock", path(lock_name_));
  return is_made_ && lock_file_.take(lock_descriptor_.get());
}

// What the file holds. Raises file_error for what is no lock.
std::string folder_lock::content() const {
  struct stat status {};
  if (KP_fstat(lock_descriptor_.get(), &status) != 0) raise_write_error(action, path(lock_name_));
  return content(status);
}

std::string folder_lock::content(const struct stat& status) const {
  const std::string lock = path(lock_name_);
  check_written_file(action, lock, status);
  std::array<char, mark.size() + NAME_MAX> bytes;
  const ssize_t size = KP_pread(lock_descriptor_.get(), bytes.data(), bytes.size(), 0);
  if (size < 0) raise_write_error(action, lock);
  std::string text(bytes.data(), static_cast<size_t>(size));
  if (!text.empty() && !text.starts_with(mark))
    raise_write_error(action, lock, "it is no lock; a lock is empty or begins with \"kplog lock\"");
  return text;
}

// False when the lock's file was removed, or replaced, while this process waited for it.
bool folder_lock::take(const lock_waiting& waiting) {
  return open_file() && take_open_file(waiting);
}

bool folder_lock::take_open_file(const lock_waiting& waiting) {
  wait(waiting);
  struct stat named {};
  if (KP_fstatat(folder(), lock_name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 ||
      !lock_file_.is_of(named)) {
    is_made_ = false;
    return false;
  }
  set_up(named);
  return true;
}

// The mark is on the disk before anything is locked: a power cut must not leave a file that is no
// lock.
void folder_lock::set_up(const struct stat& status) {
  const std::string text = content(status);
  note_ = text.empty() ? text : text.substr(mark.size());
  // Another user's lock serves as it is.
  if ((status.st_mode & ALLPERMS) != lock_mode)
    static_cast<void>(KP_fchmod(lock_descriptor_.get(), lock_mode));
  if (!text.empty()) return;
  write(mark, 0);
  static_cast<void>(KP_fsync(lock_descriptor_.get()));
  static_cast<void>(KP_fsync(folder()));
}

void folder_lock::remove() {
  struct stat named {};
  if (KP_fstatat(folder(), lock_name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
      lock_file_.is_of(named))
    KP_unlinkat(folder(), lock_name_.c_str(), 0);
}

void folder_lock::release() {
  if (folder_file_.inode == 0) static_cast<void>(folder_file_.take(folder()));
  KP_flock(lock_descriptor_.get(), LOCK_UN);
}

// The open descriptors keep the system from giving their numbers to other files.
void folder_lock::take_again(const lock_waiting& waiting) {
  struct stat named {};
  const bool is_same = KP_stat(folder_.c_str(), &named) == 0 && folder_file_.is_of(named);
  is_made_ = false;
  if (is_same && take_open_file(waiting)) return;
  if (!is_same) open_folder();
  while (!take(waiting)) {
  }
}

// --- Waiting ---

// Asks for the lock again and again: a process that is held up in flock() would not hear that it is
// to end.
void folder_lock::wait(const lock_waiting& waiting) const {
  const std::string lock = path(lock_name_);
  const lock_clock::time_point began = lock_clock::now();
  lock_clock::time_point end = lock_clock::time_point::max();
  bool is_told = !waiting.report;
  std::chrono::milliseconds pause = first_pause;
  while (KP_flock(lock_descriptor_.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK) raise_write_error(action, lock);
    if (pause == first_pause) static_cast<void>(content());  // no lock is not waited for
    const lock_clock::time_point now = lock_clock::now();
    if (now >= end)
      throw lock_given_up(file_use::writing, action, terminal_text(lock),
                          "another process holds it");
    if (waiting.is_to_end && end == lock_clock::time_point::max() && waiting.is_to_end())
      end = now + last_patience;
    if (!is_told && now - began >= told_after) {
      is_told = true;
      waiting.report("waiting for the lock " + terminal_text(lock) +
                     ", which another process holds");
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(2 * pause, longest_pause);
  }
}

// --- The note ---

void folder_lock::write(std::string_view text, off_t at) const {
  if (!write_all_at(lock_descriptor_.get(), text, at) ||
      KP_ftruncate(lock_descriptor_.get(), at + static_cast<off_t>(text.size())) != 0)
    raise_write_error("write the lock", path(lock_name_));
}

void folder_lock::write_note(const std::string& note) {
  if (note.empty() && note_.empty()) return;
  note_ = note.empty() ? note_ : note;
  write(note, mark.size());
  note_ = note;
}
