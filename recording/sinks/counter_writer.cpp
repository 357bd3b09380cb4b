#include "recording/sinks/counter_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"

static constexpr std::string_view ending = ".cnt";
static constexpr mode_t mode = S_IRUSR | S_IWUSR | S_IRGRP;

counter_place counter_place_of(const std::string& path) {
  const std::string file = path.ends_with(ending) ? path : path + std::string(ending);
  const file_place place = place_of(file);
  return {file, place.folder, place.name.substr(0, place.name.size() - ending.size())};
}

counter_writer::counter_writer(const std::string& path, lock_waiting waiting)
    : place_(counter_place_of(path)),
      file_name_(place_.name + std::string(ending)),
      waiting_(std::move(waiting)),
      index_(place_.path) {
  check_written_path(count_action, place_.path);
  write(false);
}

void counter_writer::add(const kp_Time& day, uint32_t id) {
  ++noted_[{{day.get_year(), day.get_month(), day.get_day()}, id}];
}

void counter_writer::take_lock() {
  if (lock_)
    lock_->take_again(waiting_);
  else
    lock_.emplace(place_.folder, place_.name, waiting_);
}

// Whether the file that is open still has its name, so that one that was moved away is left alone.
bool counter_writer::is_open_file(struct stat& status) const {
  return file_.is_open() &&
         KP_fstatat(lock_->folder(), file_name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         counter_.is_of(status);
}

void counter_writer::open_file() {
  static constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  struct stat status {};
  if (!is_open_file(status)) {
    file_ = open_descriptor(KP_openat(lock_->folder(), file_name_.c_str(), flags, mode));
    if (!file_.is_open() || !counter_.take(file_.get()) || KP_fstat(file_.get(), &status) != 0)
      raise_write_error(count_action, place_.path);
  }
  check_written_file(count_action, place_.path, status);
  // A new one has its mode whatever the umask.
  if (status.st_size == 0) static_cast<void>(KP_fchmod(file_.get(), mode));
  index_.follow(file_.get(), status);
}

// A failure closes everything, so that the next batch begins anew.
void counter_writer::write(bool synced, const delivery* of) {
  try {
    take_lock();
    open_file();
    lock_->keep();
    write_noted(synced);
    store_delivery(of);
    lock_->release();
  } catch (...) {
    file_ = open_descriptor();
    lock_.reset();
    throw;
  }
}

void counter_writer::write_noted(bool synced) {
  if (noted_.empty()) return;
  while (!noted_.empty()) {
    index_.add(file_.get(), noted_.begin()->first, noted_.begin()->second);
    noted_.erase(noted_.begin());
  }
  index_.finish(file_.get());
  if (synced && KP_fdatasync(file_.get()) != 0) raise_write_error(count_action, place_.path);
}
