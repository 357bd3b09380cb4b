#include "recording/sinks/counter_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"
#include "recording/files/settlement.h"

static constexpr mode_t mode = S_IRUSR | S_IWUSR | S_IRGRP;

counter_place counter_place_of(const std::string& path) {
  const std::string file =
      path.ends_with(counter_ending) ? path : path + std::string(counter_ending);
  const file_place place = place_of(file);
  return {file, place.folder, place.name.substr(0, place.name.size() - counter_ending.size())};
}

counter_writer::counter_writer(const std::string& path, lock_waiting waiting, file_report report)
    : place_(counter_place_of(path)),
      file_name_(place_.name + std::string(counter_ending)),
      waiting_(std::move(waiting)),
      report_(report_or_standard_error(std::move(report))),
      index_(place_.path) {
  check_written_path(count_action, place_.path);
  write(false);
}

void counter_writer::add(const log_day& day, uint32_t id, uint64_t count) {
  noted_[{{day.year, day.month, day.day}, id}] += count;
}

void counter_writer::take_lock() {
  if (lock_)
    lock_->take_again(waiting_);
  else
    lock_.emplace(place_.folder, place_.name, waiting_);
  settle(*lock_, report_);
  held_ = &*lock_;
}

// Whether the file that is open still has its name, so that one that was moved away is left alone.
bool counter_writer::is_open_file(struct stat& status) const {
  return file_.is_open() &&
         KP_fstatat(held_->folder(), file_name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         counter_.is_of(status);
}

void counter_writer::open_file() {
  static constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  struct stat status {};
  if (!is_open_file(status)) {
    file_ = open_descriptor(KP_openat(held_->folder(), file_name_.c_str(), flags, mode));
    if (!file_.is_open() || !counter_.take(file_.get()) || KP_fstat(file_.get(), &status) != 0)
      raise_write_error(count_action, place_.path);
  }
  check_written_file(count_action, place_.path, status);
  // A new one has its mode whatever the umask.
  if (status.st_size == 0) static_cast<void>(KP_fchmod(file_.get(), mode));
  index_.follow(file_.get(), status);
}

void counter_writer::write(bool synced, const delivery* of) {
  if (of != nullptr && of->joint != nullptr)
    write_jointly(synced, *of);
  else
    write_alone(synced, of);
}

void counter_writer::close_file() {
  file_ = open_descriptor();
  index_.forget();
}

// A failure closes everything, so that the next batch begins anew.
void counter_writer::write_alone(bool synced, const delivery* of) {
  try {
    take_lock();
    open_file();
    lock_->keep();
    if (of == nullptr)
      write_noted(synced);
    else
      write_noted(synced, *of);
    lock_->release();
  } catch (...) {
    close_file();
    lock_.reset();
    throw;
  }
}

void counter_writer::write_noted(bool synced) {
  if (noted_.empty()) return;
  for (const counter_change& change : index_.changes(file_.get(), noted_)) {
    index_.make(file_.get(), change);
    noted_.erase(change.key);
  }
  finish(synced);
}

void counter_writer::finish(bool synced) {
  index_.finish(file_.get());
  if (synced && KP_fdatasync(file_.get()) != 0) raise_write_error(count_action, place_.path);
}

// --- A ring's events ---

static noted_file noted_counter(const std::string& name, const file_identity& counter,
                                const std::vector<counter_change>& changes) {
  noted_file file{.name = name, .device = counter.device, .inode = counter.inode};
  for (const counter_change& change : changes) file.replaced.push_back(change.bytes);
  return file;
}

void counter_writer::note(const std::vector<counter_change>& changes, bool synced,
                          const delivery& of) {
  delivery_note_lines lines(of);
  lines.add(noted_counter(file_name_, counter_, changes));
  lock_->add_to_note(lines.take(), synced);
}

// What fails leaves a note by which the batch is taken back at once, or by whoever has the lock
// next.
void counter_writer::write_noted(bool synced, const delivery& of) {
  if (noted_.empty()) return store_delivery(&of, synced);
  try {
    const std::vector<counter_change> changes = index_.changes(file_.get(), noted_);
    note(changes, synced, of);
    for (const counter_change& change : changes) index_.make(file_.get(), change);
    finish(synced);
  } catch (const file_error&) {
    try {
      settle(*lock_, report_);
    } catch (const file_error&) {
    }
    throw;
  }
  noted_.clear();
  store_delivery(&of, synced);
  try {
    lock_->write_note("");
  } catch (...) {  // the ring tells the next holder
  }
}

// What fails is taken back by the joint batch, behind the back of the index.
void counter_writer::write_jointly(bool synced, const delivery& of) {
  if (noted_.empty()) return;
  if (is_doubtful_) close_file();
  is_doubtful_ = true;
  held_ = &of.joint->lock_of(place_.folder, place_.name);
  open_file();
  const std::vector<counter_change> changes = index_.changes(file_.get(), noted_);
  of.joint->note(*held_, noted_counter(file_name_, counter_, changes), synced);
  for (const counter_change& change : changes) index_.make(file_.get(), change);
  finish(synced);
  when_written(&of, [this] {
    noted_.clear();
    is_doubtful_ = false;
  });
}
