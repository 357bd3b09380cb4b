#include "tools/emit_counts.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "kp_LOG_errors.h"
#include "tools/folder_lock.h"
#include "tools/sink_error.h"

static constexpr std::string_view ending = ".cnt";

emit_counts::emit_counts(const std::string& path) {
  const size_t slash = path.rfind('/');
  folder_ = slash == std::string::npos ? "." : path.substr(0, std::max<size_t>(slash, 1));
  name_ = path.substr(slash + 1);  // npos + 1 is 0
  if (name_.ends_with(ending)) name_.resize(name_.size() - ending.size());
  path_ = folder_ + "/" + name_ + std::string(ending);
  write(false);
}

void emit_counts::add(const kp_Time& day, uint32_t id) {
  ++noted_[{{day.get_year(), day.get_month(), day.get_day()}, id}].added;
}

void emit_counts::fail(int error) const {
  errno = error;
  raise_sink_error("count in", path_);
}

// A counter without a file, or with one that it may only read, does nothing and reports success.
void emit_counts::open(_kp_LOG_EntryCounter& counter) const {
  errno = 0;
  try {
    counter.OpenEntryCounterFile(folder_.c_str(), name_.c_str());
  } catch (const KPX_logging_all&) {
    fail(errno);
  }
  if (counter.GetFilePointer() == nullptr || access(path_.c_str(), W_OK) != 0) fail(errno);
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

void emit_counts::update(_kp_LOG_EntryCounter& counter, bool synced) {
  for (const auto& [counted, count] : noted_) {
    errno = 0;
    const auto& [day, id] = counted;
    if (counter.UpdateEntryCount(day.year, day.month, day.day, static_cast<int>(id),
                                 static_cast<int>(count.present + count.added)) != 0)
      fail(errno);
  }
  if (synced && fdatasync(fileno(counter.GetFilePointer())) != 0) fail(errno);
  noted_.clear();
}

// The file is opened anew for each batch, so that one that was moved away is left alone.
void emit_counts::write(bool synced) {
  const folder_lock lock(folder_, name_);
  _kp_LOG_EntryCounter counter;
  open(counter);
  if (noted_.empty()) return;
  find_present_counts(fileno(counter.GetFilePointer()));
  update(counter, synced);
}
