// The lines of a file to which others append, as they come.
#ifndef RECORDING_RECORDS_GROWING_FILE_H
#define RECORDING_RECORDS_GROWING_FILE_H

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "recording/files/descriptor.h"
#include "recording/records/input.h"

// So far a file was handed out.
struct line_position {
  uint64_t offset = 0;  // of the bytes behind the last whole line
  uint64_t lines = 0;   // before it
};

// A batch that is taken back (docs/text-logs.md), and a file that is emptied, make it shorter: what
// comes then in place of lines that were handed out is handed out again only from the first line on
// that is another one. Raises file_error.
class growing_file {
 public:
  // What there is behind that position. The lines, if any, were handed out of a file that this one
  // has taken the place of.
  growing_file(open_descriptor file, std::string path, line_position from = {},
               std::string lost = "")
      : file_(std::move(file)),
        path_(std::move(path)),
        offset_(from.offset),
        again_(std::move(lost)),
        lines_(piece) {
    lines_.count_from(from.lines);
  }

  // The next line whose end is there by now; valid until the next call. `source` is left alone.
  bool next(record_line& line);
  // Behind the last of them, where nothing comes any more: that without an end.
  bool next_at_end(record_line& line) { return lines_.next_at_end(line); }

  bool is_of(const struct stat& status) const;
  line_position position() const;
  bool is_inside_line() const { return lines_.is_inside_line() || again_at_ != 0; }
  // Whether it became shorter since this was asked last.
  bool take_cut() { return std::exchange(is_cut_, false); }
  // Lines that were handed out and are not there any more.
  std::string take_lost() { return std::exchange(again_, ""); }

 private:
  static constexpr size_t piece = size_t{256} << 10;
  // Bytes that are compared with what is there when it became shorter: some batches.
  static constexpr size_t known_size = size_t{1} << 20;
  // And whenever something is read: it may have become longer again meanwhile.
  static constexpr size_t checked_size = 256;

  bool read_more();
  std::string read(uint64_t offset, size_t size) const;
  void add(std::string_view bytes);
  void go_back();
  size_t unshown_size() const;
  size_t again_line() const;
  uint64_t lines_again() const;

  open_descriptor file_;
  std::string path_;
  uint64_t offset_;      // behind what was read
  std::string known_;    // the last bytes before it
  std::string again_;    // whole lines that were handed out, and may come again
  size_t again_at_ = 0;  // so much of it has come
  bool is_cut_ = false;
  record_lines lines_;
};

#endif
