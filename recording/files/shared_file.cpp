#include "recording/files/shared_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <iostream>
#include <thread>
#include <utility>

#include "base/kp_clib.h"
#include "kp_LOG_filenames.h"
#include "recording/text/escape.h"

// --- The lock ---

using lock_clock = std::chrono::steady_clock;

static constexpr std::chrono::milliseconds told_after(500);
static constexpr std::chrono::milliseconds last_patience(1000);  // of a process that is to end
static constexpr std::chrono::milliseconds first_pause(1);
static constexpr std::chrono::milliseconds longest_pause(32);

static constexpr const char* lock_action = "take the lock";

static constexpr mode_t lock_mode = S_IRUSR | S_IWUSR;

static constexpr int lock_flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

// Reads `size` bytes at an offset; false where the file ends before. Raises file_error.
static bool read_whole(int file, char* bytes, size_t size, uintmax_t offset,
                       const std::string& path) {
  const ssize_t count = KP_pread(file, bytes, size, static_cast<off_t>(offset));
  if (count < 0) raise_write_error("append to", path);
  return static_cast<size_t>(count) == size;
}

std::string folder_lock::name_of(const std::string& name) {
  std::string first = name;
  std::string purpose = "lock";
  char lock_name[256];
  get_plockname(first.data(), purpose.data(), lock_name);
  return lock_name;
}

bool folder_lock::is_marked(int file, const std::string& path) {
  if (!path.ends_with(name_of(""))) return false;
  std::array<char, mark.size()> begin;
  return read_whole(file, begin.data(), begin.size(), 0, path) &&
         std::string_view(begin.data(), begin.size()) == mark;
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
  if (is_held_ && is_made_ && note_.empty()) remove();
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
  lock_descriptor_ = open_descriptor(KP_openat(folder(), lock_name_.c_str(), lock_flags));
  if (!lock_descriptor_.is_open() && errno == ENOENT) {
    lock_descriptor_ = open_descriptor(
        KP_openat(folder(), lock_name_.c_str(), lock_flags | O_CREAT | O_EXCL, lock_mode));
    is_made_ = lock_descriptor_.is_open();
    if (!is_made_ && errno == EEXIST) return false;
  }
  if (!lock_descriptor_.is_open()) raise_write_error("open the lock", path(lock_name_));
  if (!lock_file_.take(lock_descriptor_.get())) raise_write_error(lock_action, path(lock_name_));
  return true;
}

// What the file holds. Raises file_error for what is no lock.
std::string folder_lock::content() const {
  struct stat status {};
  if (KP_fstat(lock_descriptor_.get(), &status) != 0)
    raise_write_error(lock_action, path(lock_name_));
  return content(status);
}

std::string folder_lock::content(const struct stat& status) const {
  const std::string lock = path(lock_name_);
  check_written_file(lock_action, lock, status);
  std::array<char, mark.size() + NAME_MAX> bytes;
  const ssize_t size = KP_pread(lock_descriptor_.get(), bytes.data(), bytes.size(), 0);
  if (size < 0) raise_write_error(lock_action, lock);
  std::string text(bytes.data(), static_cast<size_t>(size));
  if (!text.empty() && !text.starts_with(mark))
    raise_write_error(lock_action, lock,
                      "it is no lock; a lock is empty or begins with \"kplog lock\"");
  return text;
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
  const std::string text = content(status);
  note_ = text.empty() ? text : text.substr(mark.size());
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
  if (is_same && take_open_file(waiting)) return;
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
    if (pause == first_pause) static_cast<void>(content());  // no lock is not waited for
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

// --- A batch ---

// Bytes that the unfinished line of a process has at most; more is no line.
static constexpr uintmax_t longest_tail = uintmax_t{16} << 20;

static constexpr mode_t file_mode = S_IRUSR | S_IWUSR | S_IRGRP;

append_batch::append_batch(const std::string& folder, const std::string& name, append_rules rules)
    : rules_(std::move(rules)), lock_(folder, name, rules_.waiting) {
  repair_after_death();
}

append_batch::~append_batch() {
  take_back();
}

void append_batch::report(const std::string& note) const {
  if (rules_.report)
    rules_.report(note);
  else
    std::cerr << "kplog: " << note << '\n';
}

// --- A batch: what stands behind the last line ---

// The offset behind the last byte among the first `size` that `is_sought`; `least` when there is
// none behind that offset. `size` where the file has become shorter.
template <class Sought>
static uintmax_t end_of_last(int file, const std::string& path, uintmax_t size, uintmax_t least,
                             Sought is_sought) {
  std::array<char, 65536> block;
  for (uintmax_t end = size; end > least;) {
    const uintmax_t begin = end - std::min<uintmax_t>(end - least, block.size());
    if (!read_whole(file, block.data(), end - begin, begin, path)) return size;
    for (uintmax_t at = end; at > begin; --at)
      if (is_sought(block[at - begin - 1])) return at;
    end = begin;
  }
  return least;
}

static uintmax_t end_of_text(int file, const std::string& path, uintmax_t size) {
  return end_of_last(file, path, size, 0, [](char byte) { return byte != '\0'; });
}

// The offset behind the last end of a line among the first `size` bytes; longest_tail bytes are
// looked at.
static uintmax_t end_of_whole_lines(int file, const std::string& path, uintmax_t size) {
  const uintmax_t least = size > longest_tail ? size - longest_tail : 0;
  return end_of_last(file, path, size, least, [](char byte) { return byte == '\n'; });
}

static bool is_last_byte(int file, const std::string& path, uintmax_t size, char sought) {
  char byte = 0;
  return read_whole(file, &byte, 1, size - 1, path) && byte == sought;
}

// Whether the `size` bytes at `offset` can be a line, or the start of one.
static bool is_line(int file, const std::string& path, uintmax_t offset, uintmax_t size,
                    std::string_view line_start) {
  std::string start(std::min<uintmax_t>(size, line_start.size()), '\0');
  return size < longest_tail && read_whole(file, start.data(), start.size(), offset, path) &&
         start == line_start.substr(0, start.size());
}

// What stands behind the last line of a file.
struct file_tail {
  uintmax_t lines_end = 0;  // behind the last whole line
  uintmax_t text_end = 0;   // behind the last byte that is not zero
  uintmax_t size = 0;       // of the file

  bool has_text() const { return text_end != lines_end; }
  // Zeros behind lines of a file that is not ours are somebody's data.
  bool is_ours(int file, const std::string& path, std::string_view line_start) const {
    if (has_text()) return is_line(file, path, lines_end, text_end - lines_end, line_start);
    if (lines_end == 0) return true;
    const uintmax_t last_line = end_of_whole_lines(file, path, lines_end - 1);
    return is_line(file, path, last_line, lines_end - last_line, line_start);
  }
  std::string what_was_cut_off() const {
    const std::string bytes = std::to_string(size - lines_end) + " bytes";
    if (!has_text()) return "zeros behind the last line were cut off, " + bytes;
    return std::string("an unfinished line ") +
           (text_end == size ? "was" : "and the zeros behind it were") + " cut off, " + bytes +
           " without an end of line";
  }
};

void append_batch::repair_tail(int file, const std::string& name, uintmax_t& size,
                               std::string_view line_start) const {
  const std::string path = lock_.path(name);
  if (size == 0 || is_last_byte(file, path, size, '\n')) return;
  file_tail tail;
  tail.size = size;
  tail.text_end = end_of_text(file, path, size);
  tail.lines_end = end_of_whole_lines(file, path, tail.text_end);
  if (!tail.is_ours(file, path, line_start))
    raise_write_error("append to", path,
                      "its last " + std::to_string(size - tail.lines_end) +
                          " bytes without an end of line are no line of this program's");
  if (KP_ftruncate(file, static_cast<off_t>(tail.lines_end)) != 0)
    raise_write_error("cut the unfinished line off", path);
  size = tail.lines_end;
  report(terminal_text(path) + ": " + tail.what_was_cut_off());
}

static int appending_flags() {
  return O_RDWR | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
}

// The lock's note names the dated log that a process appended to when it died. Somebody else may
// have written it: it leads to logs of this lock's prefix and nowhere else.
void append_batch::repair_after_death() {
  const std::string name = lock_.read_note();
  if (name.empty()) return;
  const bool is_log = is_a_valid_text_log(name.c_str(), lock_.name().c_str(), nullptr, nullptr,
                                          nullptr, nullptr) == 1;
  const open_descriptor file(is_log ? KP_openat(folder(), name.c_str(), appending_flags()) : -1);
  struct stat status {};
  const bool is_file = file.is_open() && KP_fstat(file.get(), &status) == 0 &&
                       S_ISREG(status.st_mode) && status.st_nlink == 1;
  uintmax_t size = static_cast<uintmax_t>(status.st_size);
  if (is_file) repair_tail(file.get(), name, size, "");
  lock_.write_note("");
}

// --- A batch: its files ---

bool append_batch::open_existing(const std::string& name) {
  return open_with(name, appending_flags());
}

void append_batch::open(const std::string& name) {
  // Whoever makes files without the lock may come in between.
  while (!open_with(name, appending_flags()) &&
         !open_with(name, appending_flags() | O_CREAT | O_EXCL)) {
  }
}

// False when there is no such file; or, where it is to be made, when there is one.
bool append_batch::open_with(const std::string& name, int flags) {
  const bool is_new = (flags & O_CREAT) != 0;
  open_descriptor file(KP_openat(folder(), name.c_str(), flags, file_mode));
  if (file.is_open()) {
    try {
      go_on_with(std::move(file), name, is_new);
    } catch (const file_error&) {
      if (is_new) KP_unlinkat(folder(), name.c_str(), 0);
      throw;
    }
    return true;
  }
  if (errno != (is_new ? EEXIST : ENOENT)) raise_write_error("open", lock_.path(name));
  return false;
}

void append_batch::go_on_with(open_descriptor file, const std::string& name, bool is_new) {
  struct stat status {};
  if (KP_fstat(file.get(), &status) != 0) raise_write_error("open", lock_.path(name));
  check_written_file("append to", lock_.path(name), status);
  if (folder_lock::is_marked(file.get(), lock_.path(name)))
    raise_write_error("append to", lock_.path(name), "it is a lock");
  uintmax_t size = static_cast<uintmax_t>(status.st_size);
  repair_tail(file.get(), name, size, rules_.line_start);
  finish_file();
  touched_.push_back({name, size, status.st_dev, status.st_ino, is_new});
  file_ = std::move(file);
  size_ = size;
  if (is_new) static_cast<void>(KP_fchmod(file_.get(), file_mode));
  // A file that has the lock's own name is looked at whenever it is opened.
  if (name != lock_.name()) lock_.write_note(name);
}

void append_batch::finish_file() {
  if (rules_.synced && file_.is_open() && KP_fsync(file_.get()) != 0)
    raise_write_error("write", lock_.path(touched_.back().name));
}

void append_batch::append(std::string_view lines) {
  std::string_view left = lines;
  if (!write_all(file_.get(), left)) raise_write_error("write", lock_.path(touched_.back().name));
  size_ += lines.size();
}

void append_batch::commit(const delivery* of) {
  finish_file();
  const bool has_new = std::any_of(touched_.begin(), touched_.end(),
                                   [](const touched_file& touched) { return touched.is_new; });
  // Not every file system can synchronise a folder, which is no failure of the files.
  if (rules_.synced && has_new) static_cast<void>(KP_fsync(folder()));
  lock_.write_note("");
  lock_.keep();
  touched_.clear();
  store_delivery(of);
}

// --- A batch: taken back ---

static bool is_file(const struct stat& status, dev_t device, ino_t number) {
  return status.st_dev == device && status.st_ino == number;
}

// A file that became shorter meanwhile is not made longer again.
bool append_batch::take_back(const touched_file& touched, int file) const noexcept {
  struct stat status {};
  if (KP_fstat(file, &status) != 0) return false;
  if (!is_file(status, touched.device, touched.number)) return true;
  const bool is_longer = static_cast<uintmax_t>(status.st_size) > touched.size;
  if (is_longer && KP_ftruncate(file, static_cast<off_t>(touched.size)) != 0) return false;
  const bool is_named =
      KP_fstatat(folder(), touched.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      is_file(status, touched.device, touched.number);
  if (touched.is_new && is_named) KP_unlinkat(folder(), touched.name.c_str(), 0);
  return true;
}

// Where that fails the note stays, and the next holder cuts off what is left of a line.
void append_batch::take_back() noexcept {
  if (touched_.empty()) return;
  bool is_back = take_back(touched_.back(), file_.get());
  touched_.pop_back();
  for (; !touched_.empty(); touched_.pop_back()) {
    const touched_file& touched = touched_.back();
    const open_descriptor file(KP_openat(folder(), touched.name.c_str(), appending_flags()));
    if (file.is_open() && !take_back(touched, file.get())) is_back = false;
  }
  try {
    if (is_back) lock_.write_note("");
  } catch (const file_error&) {
    // The next holder looks at a file that is in order.
  }
}

// --- Lines ---

// Where the path leads to no file that can be written, no lock is made beside it either.
line_file::line_file(const std::string& path, append_rules rules)
    : place_(place_of(path)), rules_(std::move(rules)) {
  check_written_path("append to", place_.folder + "/" + place_.name);
  append_batch batch(place_.folder, place_.name, rules_);
  batch.open_existing(place_.name);
  batch.commit();
}

void line_file::append(std::string& lines, bool synced, const delivery* of) {
  if (lines.empty()) return store_delivery(of);
  rules_.synced = synced;
  append_batch batch(place_.folder, place_.name, rules_);
  batch.open(place_.name);
  batch.append(lines);
  batch.commit(of);
  lines.clear();
}
