#include "history_counter.h"

#include <endian.h>
#include <fcntl.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "history_folder.h"

std::string history_counter::path_in(const std::string& folder) {
  return folder + "/" + history_file_prefix + ".cnt";
}

// --- Writing ---

history_counter::history_counter(const std::string& folder) : folder_(folder) {
  open();
}

static bool is_writable(FILE* file) {
  return file != nullptr && (fcntl(fileno(file), F_GETFL) & O_ACCMODE) == O_RDWR;
}

// A counter that has no file, or may only read it, does nothing and reports success. A program that
// relies on its counts asks.
void history_counter::open() {
  counter_.emplace();
  counter_->OpenEntryCounterFile(folder_.c_str(), history_file_prefix);
  if (!is_writable(counter_->GetFilePointer()))
    throw std::runtime_error("cannot write to " + path_in(folder_));
}

// As long as one entry ID is counted again and again, a counter adds to the record it counted last,
// even when the day has changed meanwhile. A history begins a new day with whatever ID comes, so
// each day has a counter of its own, which remembers nothing of the day before.
void history_counter::count(const history_day& day, unsigned entry_id) {
  if (day != day_ && day_ != history_day()) open();
  day_ = day;
  const int status =
      counter_->IncreaseCount(day.year, day.month, day.day, static_cast<int>(entry_id));
  if (status != 0) throw std::runtime_error("cannot write to " + path_in(folder_));
}

// --- Reading back ---

// A record as it stands in the file, each number with its most significant byte first.
struct history_count_record {
  uint32_t length;
  uint32_t year;
  uint32_t month;
  uint32_t day;
  uint32_t entry_id;
  uint32_t count;
  uint32_t reserved[2];
};
static_assert(sizeof(history_count_record) == 32);

static bool read_record(std::istream& in, history_count_record& record) {
  char bytes[sizeof record];
  if (!in.read(bytes, sizeof bytes)) return false;
  std::memcpy(&record, bytes, sizeof record);
  return true;
}

static history_day day_of(const history_count_record& record) {
  return {static_cast<int>(be32toh(record.year)), static_cast<int>(be32toh(record.month)),
          static_cast<int>(be32toh(record.day))};
}

history_counts read_history_counts(const std::string& folder) {
  std::ifstream in(history_counter::path_in(folder), std::ios::binary);
  history_counts counts;
  for (history_count_record record{}; read_record(in, record);) {
    const history_day day = day_of(record);
    if (day == history_day()) continue;  // a free slot
    counts[day].emplace(be32toh(record.entry_id), be32toh(record.count));
  }
  if (!in.eof()) throw std::runtime_error("cannot read " + history_counter::path_in(folder));
  return counts;
}
