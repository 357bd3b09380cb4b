#include "recording/files/shared_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/settlement.h"

static constexpr mode_t file_mode = S_IRUSR | S_IWUSR | S_IRGRP;

file_report report_or_standard_error(file_report report) {
  if (report) return report;
  return [](const std::string& note) { std::cerr << "kplog: " << note << '\n'; };
}

// --- A batch ---

append_batch::append_batch(const std::string& folder, const std::string& name, append_rules rules,
                           const delivery* of)
    : rules_(std::move(rules)), delivery_(of), lock_(take_lock(folder, name)) {
  rules_.report = report_or_standard_error(std::move(rules_.report));
  if (is_joint()) return;
  settle(lock_, rules_.report);
  if (of != nullptr) note_lines_.emplace(*of);
}

folder_lock& append_batch::take_lock(const std::string& folder, const std::string& name) {
  return is_joint() ? delivery_->joint->lock_of(folder, name)
                    : own_lock_.emplace(folder, name, rules_.waiting);
}

append_batch::~append_batch() {
  take_back();
}

// --- A batch: its files ---

static int appending_flags() {
  return O_RDWR | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
}

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
  const uintmax_t size =
      cut_unfinished_line(file.get(), lock_.path(name), static_cast<uintmax_t>(status.st_size),
                          rules_.line_start, rules_.report);
  finish_file();
  touched_.push_back({name, size, status.st_dev, status.st_ino, is_new});
  file_ = std::move(file);
  size_ = size;
  if (is_new) static_cast<void>(KP_fchmod(file_.get(), file_mode));
  // A file that has the lock's own name is looked at whenever it is opened.
  if (delivery_ == nullptr && name != lock_.name()) lock_.write_note(name);
}

void append_batch::finish_file() {
  if (rules_.synced && file_.is_open() && KP_fsync(file_.get()) != 0)
    raise_write_error("write", lock_.path(touched_.back().name));
}

void append_batch::note(std::string_view lines) {
  const touched_file& touched = touched_.back();
  const noted_file file = {.name = touched.name,
                           .device = touched.device,
                           .inode = touched.number,
                           .size = size_,
                           .appended = lines.size(),
                           .is_new = touched.is_new};
  if (is_joint()) return delivery_->joint->note(lock_, file, rules_.synced);
  note_lines_->add(file);
  lock_.add_to_note(note_lines_->take(), rules_.synced);
}

void append_batch::append(std::string_view lines) {
  if (delivery_ != nullptr) note(lines);
  std::string_view left = lines;
  if (!write_all(file_.get(), left)) raise_write_error("write", lock_.path(touched_.back().name));
  size_ += lines.size();
}

void append_batch::commit() {
  finish_file();
  const bool has_new = std::any_of(touched_.begin(), touched_.end(),
                                   [](const touched_file& touched) { return touched.is_new; });
  // Not every file system can synchronise a folder, which is no failure of the files.
  if (rules_.synced && has_new) static_cast<void>(KP_fsync(folder()));
  if (delivery_ == nullptr)
    lock_.write_note("");
  else if (!is_joint())
    finish_delivery();
  lock_.keep();
  touched_.clear();
}

// From here on the batch is in the output, whatever fails: where the note stays, the ring tells the
// next holder so.
void append_batch::finish_delivery() noexcept {
  store_delivery(delivery_, rules_.synced);
  try {
    lock_.write_note("");
  } catch (...) {  // the note stays
  }
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
  if (touched_.empty() || is_joint()) return;
  bool is_back = take_back(touched_.back(), file_.get());
  touched_.pop_back();
  for (; !touched_.empty(); touched_.pop_back()) {
    const touched_file& touched = touched_.back();
    const open_descriptor file(KP_openat(folder(), touched.name.c_str(), appending_flags()));
    if (file.is_open() && !take_back(touched, file.get())) is_back = false;
  }
  try {
    if (is_back) lock_.write_note("");
  } catch (...) {
    // The next holder looks at a file that is in order.
  }
}

// --- Lines ---

// Where the path leads to no file that can be written, no lock is made beside it either.
line_file::line_file(const std::string& path, append_rules rules, uintmax_t most)
    : place_(place_of(path)), rules_(std::move(rules)), most_(most) {
  check_written_path("append to", place_.folder + "/" + place_.name);
  append_batch batch(place_.folder, place_.name, rules_);
  batch.open_existing(place_.name);
  batch.commit();
}

// Those of the lines that have as many bytes together, or fewer.
static std::string_view lines_within(std::string_view lines, uintmax_t room) {
  if (lines.size() <= room) return lines;
  return lines.substr(0, lines.substr(0, room).rfind('\n') + 1);
}

void line_file::append(std::string& lines, bool synced, const delivery* of) {
  left_out_ = 0;
  if (lines.empty()) return store_delivery(of, synced);
  rules_.synced = synced;
  append_batch batch(place_.folder, place_.name, rules_, of);
  batch.open(place_.name);
  const std::string_view taken =
      lines_within(lines, most_ - std::min<uintmax_t>(most_, batch.size()));
  if (!taken.empty()) batch.append(taken);
  batch.commit();
  left_out_ = static_cast<size_t>(
      std::count(lines.begin() + static_cast<ptrdiff_t>(taken.size()), lines.end(), '\n'));
  when_written(of, [&lines] { lines.clear(); });
}
