#include "recording/sinks/counter_index.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
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
  return read_part(file, offset, size, count_action, path_);
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

// Nothing where there is no such record, or another one by now.
std::optional<counter_change> counter_index::known_change(int file, const counter_key& key,
                                                          uint64_t added) const {
  const std::optional<uint32_t> number = find(key);
  if (!number) return std::nullopt;
  const uint64_t offset = uint64_t{*number} * kp_counter_record_size;
  const std::string before = read_bytes(file, offset, kp_counter_record_size);
  if (before.size() != kp_counter_record_size) return std::nullopt;
  const counted_entries record = counter_record_at(before, 0);
  if (counter_key{record.day, record.id} != key) return std::nullopt;
  std::string after = before;
  set_counter_count(after, saturated(record.count + added));
  return counter_change{key, false, {offset, before, after}};
}

uint32_t counter_index::new_place() {
  if (free_.empty()) return static_cast<uint32_t>(records_++);
  const uint32_t number = free_.back();
  free_.pop_back();
  return number;
}

counter_change counter_index::new_change(int file, const counter_key& key, uint64_t added) {
  const uint32_t number = new_place();
  const uint64_t offset = uint64_t{number} * kp_counter_record_size;
  new_.emplace(key, number);
  return {key,
          true,
          {offset, read_bytes(file, offset, kp_counter_record_size),
           new_counter_record({key.day, key.id, saturated(added)})}};
}

// A key that is not known may stand in a slot that somebody else has filled, and one that is known
// may have moved: the file is then searched, before new places are given.
std::vector<counter_change> counter_index::changes(int file,
                                                   const std::map<counter_key, uint64_t>& added) {
  std::vector<counter_change> changes;
  std::vector<size_t> new_ones;
  for (bool is_searched = false;; is_searched = true) {
    changes.clear();
    new_ones.clear();
    bool is_doubtful = false;
    for (const auto& [key, count] : added) {
      std::optional<counter_change> known = known_change(file, key, count);
      if (!known) new_ones.push_back(changes.size());
      if (!known && (!is_exact_ || find(key))) is_doubtful = true;
      changes.push_back(known ? std::move(*known) : counter_change{key});
    }
    if (!is_doubtful || is_searched) break;
    rebuild(file);
  }
  for (const size_t at : new_ones)
    changes[at] = new_change(file, changes[at].key, added.at(changes[at].key));
  return changes;
}

// A part of a new record would be one of another day.
void counter_index::make(int file, const counter_change& change) const {
  const off_t offset = static_cast<off_t>(change.bytes.offset);
  if (write_all_at(file, change.bytes.after, offset)) return;
  const int error = errno;
  struct stat status {};
  if (change.is_new) static_cast<void>(KP_fstat(file, &status));
  if (status.st_size > offset + off_t{kp_counter_record_size})
    static_cast<void>(write_all_at(file, std::string(kp_counter_record_size, '\0'), offset));
  else if (status.st_size > offset)
    static_cast<void>(KP_ftruncate(file, offset));
  errno = error;
  fail();
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
