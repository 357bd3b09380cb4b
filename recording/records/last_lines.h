// Lines of records from the end of a file: the last of them are found without reading the others.
#ifndef RECORDING_RECORDS_LAST_LINES_H
#define RECORDING_RECORDS_LAST_LINES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "recording/records/input.h"

// Where a line stands in its file.
struct line_place {
  uint64_t offset = 0;
  uint64_t size = 0;  // without its line feed

  bool operator==(const line_place&) const = default;
};

// The lines that record_lines makes of a file, but the last one first: of how many lines stand
// before them nothing is known. Holds no more than one line twice and a piece.
class last_record_lines {
 public:
  // Of the first `size` bytes of a file, which must stay open. `path` is what errors tell; `room`
  // is for one read, and no line may have more than `most` bytes, whatever it is.
  last_record_lines(int file, uint64_t size, std::string path, size_t room = size_t{256} << 10,
                    size_t most = stored_record_size_limit);

  // The line before the one that was handed out last, without a number; it lives until the next
  // call, and its source is left alone. False where there is none. Raises file_error.
  bool next(record_line& line);
  // Of the line that was handed out last.
  const line_place& place() const { return place_; }
  // Whether everything was looked at.
  bool is_at_begin() const { return end_ == 0; }

 private:
  uint64_t begin_of_line(uint64_t line_end);
  void read_before();
  std::string_view bytes_of_line();

  int file_;
  std::string path_;
  size_t room_;
  size_t most_;
  uint64_t end_;  // of what was not looked at; behind the line feed of a line that has one
  line_place place_;
  std::vector<char> bytes_;  // of the file, from offset_ on
  uint64_t offset_;
  size_t held_ = 0;    // of these bytes
  std::string begin_;  // of a line that is too long to be held
};

// Lines at known places of a file, with their numbers: all before them is read to count it.
class numbered_record_lines {
 public:
  numbered_record_lines(int file, std::string path, size_t most = stored_record_size_limit)
      : file_(file), path_(std::move(path)), most_(most) {}

  // The line at the place, which lies behind those that were asked for before; it lives until the
  // next call, and its source is left alone. Raises file_error.
  void read(const line_place& place, record_line& line);

 private:
  void count_to(uint64_t offset);

  int file_;
  std::string path_;
  size_t most_;
  uint64_t counted_ = 0;  // bytes
  uint64_t number_ = 1;   // of the line behind them
  std::vector<char> room_;
  std::string bytes_;  // of the line
};

#endif
