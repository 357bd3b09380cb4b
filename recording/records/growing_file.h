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

// What becomes of lines that were handed out and are gone, as a batch was taken back
// (docs/text-logs.md) or the file was emptied: they are compared with what comes in their place,
// and handed out again only from the first line on that is another one; or others do that.
enum class lost_lines { compared, handed_over };

// Raises file_error.
class growing_file {
 public:
  // What there is behind that position.
  growing_file(open_descriptor file, std::string path, line_position from = {},
               lost_lines lost = lost_lines::compared)
      : file_(std::move(file)),
        path_(std::move(path)),
        how_(lost),
        offset_(from.offset),
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
  // Lines that were handed out and are gone, since this was asked last.
  std::string take_lost() { return std::exchange(lost_, ""); }

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
  lost_lines how_;
  std::string lost_;     // to be handed over
  uint64_t offset_;      // behind what was read
  std::string known_;    // the last bytes before it
  std::string again_;    // whole lines that were handed out, and may come again
  size_t again_at_ = 0;  // so much of it has come
  bool is_cut_ = false;
  record_lines lines_;
};

#endif
