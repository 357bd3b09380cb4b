#include "tools/emit_counts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "kp_LOG_errors.h"
#include "tools/file_place.h"
#include "tools/folder_lock.h"
#include "tools/open_descriptor.h"
#include "tools/sink_error.h"
#include "tools/terminal_text.h"

static constexpr std::string_view ending = ".cnt";

std::string counter_file_path(const std::string& name) {
  return name.ends_with(ending) ? name : name + std::string(ending);
}

emit_counts::emit_counts(const std::string& path) : path_(counter_file_path(path)) {
  const file_place place = place_of(path_);
  folder_ = place.folder;
  name_ = place.name.substr(0, place.name.size() - ending.size());
  write(false);
}

void emit_counts::add(const kp_Time& day, uint32_t id) {
  ++noted_[{{day.get_year(), day.get_month(), day.get_day()}, id}].added;
}

void emit_counts::fail(int error) const {
  errno = error;
  raise_sink_error("count in", path_);
}

// The counter follows links, waits for pipes, and does nothing and reports success where it may not
// write.
void emit_counts::prepare_file(int folder) const {
  static constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  static constexpr mode_t mode = S_IRUSR | S_IWUSR | S_IRGRP;
  const open_descriptor file(openat(folder, (name_ + std::string(ending)).c_str(), flags, mode));
  struct stat status {};
  if (!file.is_open() || fstat(file.get(), &status) != 0) fail(errno);
  if (!S_ISREG(status.st_mode))
    throw sink_error("cannot count in " + terminal_text(path_) + ": it is not a regular file");
  // A new one has its mode whatever the umask.
  if (status.st_size == 0) static_cast<void>(fchmod(file.get(), mode));
}

void emit_counts::open(_kp_LOG_EntryCounter& counter) const {
  errno = 0;
  try {
    counter.OpenEntryCounterFile(folder_.c_str(), name_.c_str());
  } catch (const KPX_logging_all&) {
    fail(errno);
  }
  if (counter.GetFilePointer() == nullptr) fail(errno);
}

// The first record of a key counts.
void emit_counts::take_present_counts(std::string_view records) {
  visit_counts(records, [&](const counted_entries& record, size_t) {
    const auto noted = noted_.find({record.day, record.id});
    if (noted == noted_.end() || noted->second.is_found) return;
    noted->second.present = record.count;
    noted->second.is_found = true;
  });
}

void emit_counts::find_present_counts(int file) {
  std::array<char, 65536> block;  // whole records
  ssize_t got = static_cast<ssize_t>(block.size());
  for (off_t at = 0; got == static_cast<ssize_t>(block.size()); at += got) {
    got = pread(file, block.data(), block.size(), at);
    if (got < 0) fail(errno);
    take_present_counts({block.data(), static_cast<size_t>(got)});
  }
}

// Records have 32 bits.
static uint32_t saturated(uint64_t count) {
  return static_cast<uint32_t>(std::min<uint64_t>(count, UINT32_MAX));
}

void emit_counts::update(_kp_LOG_EntryCounter& counter, bool synced) {
  for (const auto& [counted, count] : noted_) {
    errno = 0;
    const auto& [day, id] = counted;
    if (counter.UpdateEntryCount(day.year, day.month, day.day, static_cast<int>(id),
                                 static_cast<int>(saturated(count.present + count.added))) != 0)
      fail(errno);
  }
  if (synced && fdatasync(fileno(counter.GetFilePointer())) != 0) fail(errno);
  noted_.clear();
}

// The file is opened anew for each batch, so that one that was moved away is left alone.
void emit_counts::write(bool synced) {
  const folder_lock lock(folder_, name_);
  prepare_file(lock.folder());
  _kp_LOG_EntryCounter counter;
  open(counter);
  if (noted_.empty()) return;
  find_present_counts(fileno(counter.GetFilePointer()));
  update(counter, synced);
}
