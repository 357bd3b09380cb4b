#include "recording/files/folder_lock.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <thread>
#include <utility>

#include "base/kp_clib.h"
#include "kp_LOG_filenames.h"
#include "recording/text/escape.h"

using lock_clock = std::chrono::steady_clock;

static constexpr std::chrono::milliseconds told_after(500);
static constexpr std::chrono::milliseconds last_patience(1000);  // of a process that is to end
static constexpr std::chrono::milliseconds first_pause(1);
static constexpr std::chrono::milliseconds longest_pause(32);

static constexpr const char* lock_action = "take the lock";

static constexpr mode_t lock_mode = S_IRUSR | S_IWUSR;

static constexpr int lock_flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

// --- The lock: its descriptor ---

// Held where a descriptor comes or goes, and while the process forks.
static std::mutex open_locks_mutex;
static lock_descriptor* first_open_lock = nullptr;

void lock_descriptor::close_in_child() {
  for (lock_descriptor* lock = first_open_lock; lock != nullptr; lock = lock->next_)
    ::close(std::exchange(lock->descriptor_, -1));
  first_open_lock = nullptr;
  open_locks_mutex.unlock();
}

bool lock_descriptor::open(int folder, const std::string& name, int flags, mode_t mode) {
  static std::once_flag once;
  std::call_once(once, [] {
    pthread_atfork([] { open_locks_mutex.lock(); }, [] { open_locks_mutex.unlock(); },
                   close_in_child);
  });
  close();
  const std::lock_guard hold(open_locks_mutex);
  descriptor_ = KP_openat(folder, name.c_str(), flags, mode);
  if (!is_open()) return false;
  previous_ = nullptr;
  next_ = first_open_lock;
  if (next_ != nullptr) next_->previous_ = this;
  first_open_lock = this;
  return true;
}

// Keeps errno.
void lock_descriptor::close() {
  const std::lock_guard hold(open_locks_mutex);
  if (!is_open()) return;
  const int error = errno;
  ::close(std::exchange(descriptor_, -1));
  errno = error;
  if (next_ != nullptr) next_->previous_ = previous_;
  (previous_ == nullptr ? first_open_lock : previous_->next_) = next_;
}

// --- The lock ---

std::string folder_lock::name_of(const std::string& name) {
  std::string first = name;
  std::string purpose = "lock";
  char lock_name[256];
  get_plockname(first.data(), purpose.data(), lock_name);
  return lock_name;
}

bool folder_lock::is_marked(int file, const std::string& path) {
  if (!path.ends_with(name_of(""))) return false;
  return read_part(file, 0, mark.size(), "append to", path) == mark;
}

folder_lock::folder_lock(const file_place& place)
    : folder_(place.folder), name_(place.name), lock_name_(name_of(place.name)) {}

// What fails from here on is cleared up by the destructor.
folder_lock::folder_lock(const std::string& folder, const std::string& name,
                         const lock_waiting& waiting)
    : folder_lock(file_place{folder, name}) {
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
  if (lock_descriptor_.is_open() && is_held_ && is_made_ && note_.empty()) remove();
}

void folder_lock::remove() {
  struct stat named {};
  if (KP_fstatat(folder(), lock_name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
      lock_file_.is_of(named))
    KP_unlinkat(folder(), lock_name_.c_str(), 0);
}

// --- The lock: its file ---

// False when somebody made, or removed, the file meanwhile.
bool folder_lock::open_file() {
  is_made_ = false;
  is_held_ = false;
  if (!lock_descriptor_.open(folder(), lock_name_, lock_flags) && errno == ENOENT) {
    is_made_ =
        lock_descriptor_.open(folder(), lock_name_, lock_flags | O_CREAT | O_EXCL, lock_mode);
    if (!is_made_ && errno == EEXIST) return false;
  }
  if (!lock_descriptor_.is_open()) raise_write_error("open the lock", path(lock_name_));
  if (!lock_file_.take(lock_descriptor_.get())) raise_write_error(lock_action, path(lock_name_));
  return true;
}

// The first `size` bytes of the file. Raises file_error for what is no lock.
std::string folder_lock::content(const struct stat& status, size_t size) const {
  const std::string lock = path(lock_name_);
  check_written_file(lock_action, lock, status);
  std::string text = read_part(lock_descriptor_.get(), 0, size, lock_action, lock);
  if (!text.empty() && !text.starts_with(mark))
    raise_write_error(lock_action, lock,
                      "it is no lock; a lock is empty or begins with \"kplog lock\"");
  return text;
}

void folder_lock::refuse_what_is_no_lock() const {
  struct stat status {};
  if (KP_fstat(lock_descriptor_.get(), &status) != 0)
    raise_write_error(lock_action, path(lock_name_));
  static_cast<void>(content(status, mark.size()));
}

// False when the lock's file was removed, or replaced, while this process waited for it.
bool folder_lock::take(const lock_waiting& waiting) {
  return open_file() && take_open_file(waiting);
}

bool folder_lock::take_open_file(const lock_waiting& waiting) {
  wait(waiting);
  is_held_ = true;
  struct stat named {};
  const bool is_there = KP_fstatat(folder(), lock_name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0;
  if (!is_there && errno != ENOENT) raise_write_error(lock_action, path(lock_name_));
  if (!is_there || !lock_file_.is_of(named)) {
    is_made_ = false;
    return false;
  }
  set_up(named);
  return true;
}

// The mark is on the disk before anything is locked: a power cut must not leave a file that is no
// lock.
void folder_lock::set_up(const struct stat& status) {
  const size_t size = static_cast<size_t>(status.st_size);
  const std::string text =
      content(status, std::clamp(size, mark.size(), mark.size() + longest_note + 1));
  note_ = text.empty() ? text : text.substr(mark.size());
  owner_ = status.st_uid;
  // Another user's lock serves as it is.
  if ((status.st_mode & ALLPERMS) != lock_mode)
    static_cast<void>(KP_fchmod(lock_descriptor_.get(), lock_mode));
  if (!text.empty()) return;
  try {
    write(mark, 0);
  } catch (const file_error&) {  // a part of the mark would be no lock
    static_cast<void>(KP_ftruncate(lock_descriptor_.get(), 0));
    throw;
  }
  static_cast<void>(KP_fsync(lock_descriptor_.get()));
  static_cast<void>(KP_fsync(folder()));
}

void folder_lock::release() {
  if (folder_file_.inode == 0) static_cast<void>(folder_file_.take(folder()));
  KP_flock(lock_descriptor_.get(), LOCK_UN);
  is_held_ = false;
}

// The open descriptors keep the system from giving their numbers to other files.
void folder_lock::take_again(const lock_waiting& waiting) {
  struct stat named {};
  const bool is_same = KP_stat(folder_.c_str(), &named) == 0 && folder_file_.is_of(named);
  is_made_ = false;
  if (is_same && lock_descriptor_.is_open() && take_open_file(waiting)) return;
  if (!is_same) open_folder();
  while (!take(waiting)) {
  }
}

// --- The lock: waiting for it ---

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
    if (errno != EWOULDBLOCK) raise_write_error(lock_action, lock);
    if (pause == first_pause) refuse_what_is_no_lock();  // which is not waited for
    const lock_clock::time_point now = lock_clock::now();
    if (now >= end)
      throw lock_given_up(file_use::writing, lock_action, terminal_text(lock),
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

// --- The lock: its note ---

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

void folder_lock::add_to_note(const std::string& text, bool synced) {
  if (note_.size() + text.size() > longest_note)
    raise_write_error("write the lock", path(lock_name_), "the batch is too large to be noted");
  const off_t at = static_cast<off_t>(mark.size() + note_.size());
  note_ += text;
  if (!write_all_at(lock_descriptor_.get(), text, at) ||
      (synced && KP_fsync(lock_descriptor_.get()) != 0))
    raise_write_error("write the lock", path(lock_name_));
}

void folder_lock::clear_note() {
  write_note("");
  static_cast<void>(KP_fsync(lock_descriptor_.get()));
}
