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

static constexpr std::string_view ending = ".cnt";

counter_place counter_place_of(const std::string& path) {
  const std::string file = path.ends_with(ending) ? path : path + std::string(ending);
  const file_place place = place_of(file);
  return {file, place.folder, place.name.substr(0, place.name.size() - ending.size())};
}

emit_counts::emit_counts(const std::string& path) : place_(counter_place_of(path)) {
  check_written_path("count in", place_.path);
  write(false);
}

void emit_counts::add(const kp_Time& day, uint32_t id) {
  ++noted_[{{day.get_year(), day.get_month(), day.get_day()}, id}].added;
}

void emit_counts::fail(int error) const {
  errno = error;
  raise_sink_error("count in", place_.path);
}

// The counter follows links, waits for pipes, and does nothing and reports success where it may not
// write.
void emit_counts::prepare_file(int folder) const {
  static constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  static constexpr mode_t mode = S_IRUSR | S_IWUSR | S_IRGRP;
  const open_descriptor file(
      openat(folder, (place_.name + std::string(ending)).c_str(), flags, mode));
  struct stat status {};
  if (!file.is_open() || fstat(file.get(), &status) != 0) fail(errno);
  check_written_file("count in", place_.path, status);
  // A new one has its mode whatever the umask.
  if (status.st_size == 0) static_cast<void>(fchmod(file.get(), mode));
}

void emit_counts::open(_kp_LOG_EntryCounter& counter) const {
  errno = 0;
  try {
    counter.OpenEntryCounterFile(place_.folder.c_str(), place_.name.c_str());
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
  folder_lock lock(place_.folder, place_.name);
  prepare_file(lock.folder());
  _kp_LOG_EntryCounter counter;
  open(counter);
  lock.keep();
  if (noted_.empty()) return;
  find_present_counts(fileno(counter.GetFilePointer()));
  update(counter, synced);
}
