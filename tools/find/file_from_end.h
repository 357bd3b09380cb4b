// A file of records that is read from its end.
#ifndef TOOLS_FIND_FILE_FROM_END_H
#define TOOLS_FIND_FILE_FROM_END_H

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "recording/files/descriptor.h"
#include "recording/records/input.h"
#include "recording/records/last_lines.h"

class file_from_end {
 public:
  // Null for what is read from its begin alone: a compressed file, and what is no regular file, or
  // tells no size. Raises file_error.
  static std::unique_ptr<file_from_end> open(const std::string& path);

  // The line before the one that was handed out last, without a number; it lives until the next
  // call. False where there is none. Raises file_error.
  bool next(record_line& line);
  bool is_at_begin() const { return lines_.is_at_begin(); }

  // The line that was handed out last is to be told of when its number is known.
  void remember();
  // Hands over these lines with their numbers, from the first to the last: of many those that come
  // first. All that stands before them is read to count it. Raises file_error.
  void for_each_remembered(const record_taker& take);
  // Lines that were to be remembered, and were too many.
  uint64_t forgotten() const { return forgotten_; }

 private:
  file_from_end(open_descriptor file, uint64_t size, const std::string& path);

  open_descriptor file_;
  std::string path_;
  std::shared_ptr<line_source> source_;
  last_record_lines lines_;
  std::deque<line_place> remembered_;
  uint64_t forgotten_ = 0;
};

#endif
