// Counter files for tests, written byte by byte from the layout, and a counter on one of them.
#ifndef TESTS_SUPPORT_COUNTER_FOLDER_H
#define TESTS_SUPPORT_COUNTER_FOLDER_H

#include <cstdint>
#include <string>

#include "base/kp_time.h"
#include "kp_LOG_EntryCounter.h"
#include "tests/support/temp_folder.h"

// The 32 bytes of a record. Its reserved bytes are `reserved`, filled up with NULs.
std::string counter_record(int year, int month, int day, int entry_id, unsigned count,
                           const std::string& reserved = "");

// A free slot as deleting leaves it.
std::string free_counter_slot(const std::string& reserved = "");

// The count in the first record with the key, or -1.
long long count_in(const std::string& bytes, int year, int month, int day, int entry_id);

// A folder with the counter file "c.cnt" of that content, opened.
class counter_folder {
 public:
  explicit counter_folder(const std::string& content = "");

  std::string path() const { return folder_.file("c.cnt"); }
  std::string bytes() const { return read_whole_file(path()); }
  // Writes into the file as another process does: past the counter, without cutting the file.
  void write_from_outside(size_t offset, const std::string& bytes) const;
  // Where the position of the counter's file is.
  long position() { return ftell(counter.GetFilePointer()); }
  const temp_folder& folder() const { return folder_; }

 private:
  temp_folder folder_;

 public:
  _kp_LOG_EntryCounter counter;
};

inline kp_Time day_of(int year, int month, int day) {
  return {year, month, day, 12, 0, 0};
}

#endif
