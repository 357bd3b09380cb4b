#include "tools/emit_counts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>
#include <utility>

#include "tools/file_place.h"
#include "tools/sink_error.h"

static constexpr std::string_view ending = ".cnt";

counter_place counter_place_of(const std::string& path) {
  const std::string file = path.ends_with(ending) ? path : path + std::string(ending);
  const file_place place = place_of(file);
  return {file, place.folder, place.name.substr(0, place.name.size() - ending.size())};
}

emit_counts::emit_counts(const std::string& path, lock_waiting waiting)
    : place_(counter_place_of(path)), waiting_(std::move(waiting)), index_(place_.path) {
  check_written_path("count in", place_.path);
  write(false);
}

void emit_counts::add(const kp_Time& day, uint32_t id) {
  ++noted_[{{day.get_year(), day.get_month(), day.get_day()}, id}];
}

// The file is opened anew for each batch, so that one that was moved away is left alone.
open_descriptor emit_counts::open_file(int folder) {
  static constexpr const char* action = "count in";
  static constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  static constexpr mode_t mode = S_IRUSR | S_IWUSR | S_IRGRP;
  open_descriptor file(openat(folder, (place_.name + std::string(ending)).c_str(), flags, mode));
  struct stat status {};
  if (!file.is_open() || fstat(file.get(), &status) != 0) raise_sink_error(action, place_.path);
  check_written_file(action, place_.path, status);
  // A new one has its mode whatever the umask.
  if (status.st_size == 0) static_cast<void>(fchmod(file.get(), mode));
  index_.follow(file.get(), status);
  return file;
}

void emit_counts::write(bool synced) {
  folder_lock lock(place_.folder, place_.name, waiting_);
  const open_descriptor file = open_file(lock.folder());
  lock.keep();
  if (noted_.empty()) return;
  while (!noted_.empty()) {
    index_.add(file.get(), noted_.begin()->first, noted_.begin()->second);
    noted_.erase(noted_.begin());
  }
  index_.finish(file.get());
  if (synced && fdatasync(file.get()) != 0) raise_sink_error("count in", place_.path);
}
