#include "recording/sinks/counter_index.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "base/kp_clib.h"
#include "logging/counter_format.h"
#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"

static constexpr size_t block_size = size_t{2048} * kp_counter_record_size;

void counter_index::fail() const {
  raise_write_error(count_action, path_);
}

// --- Reading ---

std::string counter_index::read_bytes(int file, uint64_t offset, size_t size) const {
  std::string bytes(size, '\0');
  size_t done = 0;
  while (done < size) {
    const ssize_t got =
        KP_pread(file, bytes.data() + done, size - done, static_cast<off_t>(offset + done));
    if (got < 0) fail();
    if (got == 0) break;
    done += static_cast<size_t>(got);
  }
  bytes.resize(done);
  return bytes;
}

// Zeros are no record: what a power cut leaves, and the rest of one that was cut short.
static void check_record(const std::string& path, const std::string& bytes, size_t at,
                         uint64_t offset, const counted_entries& record) {
  const uint32_t length = counter_record_length(bytes, at);
  if (length == kp_counter_record_size || (length == 0 && record.day == counter_day{})) return;
  raise_write_error(count_action, path,
                    "it is no counter file; what begins at byte " + std::to_string(offset) +
                        " is a record of " + std::to_string(length) +
                        " bytes by its own account, and records have " +
                        std::to_string(kp_counter_record_size));
}

// Reads from the record of that number to the end. The record that is cut short there, if any, is
// read again the next time, with all others.
void counter_index::read_records(int file, uint64_t from, const record_visitor& visit) {
  uint64_t offset = from * kp_counter_record_size;
  std::string bytes;
  do {
    bytes = read_bytes(file, offset, block_size);
    for (size_t at = 0; at < bytes.size(); at += kp_counter_record_size) {
      const counted_entries record = counter_record_at(bytes, at);
      check_record(path_, bytes, at, offset + at, record);
      if ((offset + at) / kp_counter_record_size >= UINT32_MAX)
        raise_write_error(count_action, path_, "it is too large");
      visit(record, static_cast<uint32_t>((offset + at) / kp_counter_record_size));
    }
    offset += bytes.size();
  } while (bytes.size() == block_size);
  records_ = (offset + kp_counter_record_size - 1) / kp_counter_record_size;
  if (offset % kp_counter_record_size != 0) is_filled_ = false;
}

void counter_index::rebuild(int file) {
  places_.clear();
  new_.clear();
  free_.clear();
  is_filled_ = true;
  read_records(file, 0, [this](const counted_entries& record, uint32_t number) {
    if (record.day == counter_day{})
      free_.push_back(number);
    else
      places_.push_back({{record.day, record.id}, number});
  });
  std::sort(places_.begin(), places_.end());
  places_.erase(
      std::unique(places_.begin(), places_.end(),
                  [](const place& one, const place& other) { return one.key == other.key; }),
      places_.end());
  std::reverse(free_.begin(), free_.end());
  is_exact_ = true;
}

void counter_index::follow(int file, const struct stat& status) {
  const bool is_same = is_filled_ && status.st_dev == device_ && status.st_ino == inode_ &&
                       static_cast<uint64_t>(status.st_size) >= records_ * kp_counter_record_size;
  device_ = status.st_dev;
  inode_ = status.st_ino;
  if (!is_same) return rebuild(file);
  const timespec& time = status.st_mtim;
  if (time.tv_sec != written_.tv_sec || time.tv_nsec != written_.tv_nsec) is_exact_ = false;
  if (static_cast<uint64_t>(status.st_size) == records_ * kp_counter_record_size) return;
  read_records(file, records_, [this](const counted_entries& record, uint32_t number) {
    const counter_key key = {record.day, record.id};
    if (record.day != counter_day{} && !find(key)) new_.emplace(key, number);
  });
}

std::optional<uint32_t> counter_index::find(const counter_key& key) const {
  const auto at = std::lower_bound(
      places_.begin(), places_.end(), key,
      [](const place& one, const counter_key& sought) { return one.key < sought; });
  if (at != places_.end() && at->key == key) return at->number;
  const auto added = new_.find(key);
  return added == new_.end() ? std::nullopt : std::optional(added->second);
}

// --- Writing ---

static uint32_t saturated(uint64_t count) {
  return static_cast<uint32_t>(std::min<uint64_t>(count, UINT32_MAX));
}

void counter_index::write(int file, uint32_t number, const std::string& record) const {
  if (!write_all_at(file, record, static_cast<off_t>(uint64_t{number} * kp_counter_record_size)))
    fail();
}

// A part of a record would be one of another day.
void counter_index::write_new(int file, uint32_t number, const std::string& record) const {
  try {
    write(file, number, record);
  } catch (const file_error&) {
    const off_t offset = off_t{number} * kp_counter_record_size;
    struct stat status {};
    static_cast<void>(KP_fstat(file, &status));
    if (status.st_size > offset + off_t{kp_counter_record_size})
      static_cast<void>(write_all_at(file, std::string(kp_counter_record_size, '\0'), offset));
    else if (status.st_size > offset)
      static_cast<void>(KP_ftruncate(file, offset));
    throw;
  }
}

// False when another record is there by now.
bool counter_index::add_at(int file, uint32_t number, const counter_key& key,
                           uint64_t added) const {
  std::string bytes =
      read_bytes(file, uint64_t{number} * kp_counter_record_size, kp_counter_record_size);
  if (bytes.size() != kp_counter_record_size) return false;
  const counted_entries record = counter_record_at(bytes, 0);
  if (counter_key{record.day, record.id} != key) return false;
  set_counter_count(bytes, saturated(record.count + added));
  write(file, number, bytes);
  return true;
}

uint32_t counter_index::new_place() {
  if (free_.empty()) return static_cast<uint32_t>(records_++);
  const uint32_t number = free_.back();
  free_.pop_back();
  return number;
}

// A key that is not known may stand in a slot that somebody else has filled.
void counter_index::add(int file, const counter_key& key, uint64_t added) {
  std::optional<uint32_t> number = find(key);
  if (number && add_at(file, *number, key, added)) return;
  if (number || !is_exact_) {
    rebuild(file);
    number = find(key);
    if (number && add_at(file, *number, key, added)) return;
  }
  const bool was_filled = std::exchange(is_filled_, false);
  const uint32_t slot = new_place();
  write_new(file, slot, new_counter_record({key.day, key.id, saturated(added)}));
  new_.emplace(key, slot);
  is_filled_ = was_filled;
}

// Gives the file a time to the nanosecond, which the writing of others replaces by that of the
// system's clock: a file that still has it was written to by nobody else. Where that cannot be had,
// new keys are searched for.
void counter_index::finish(int file) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  const std::array<timespec, 2> times = {{{0, UTIME_OMIT}, now}};
  written_ = futimens(file, times.data()) == 0 ? now : timespec{};
}
