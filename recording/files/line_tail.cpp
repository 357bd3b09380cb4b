#include "recording/files/line_tail.h"

#include <algorithm>

#include "base/kp_clib.h"
#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"
#include "recording/text/escape.h"

// Bytes that the unfinished line of a process has at most; more is no line.
static constexpr uintmax_t longest_tail = uintmax_t{16} << 20;

static constexpr size_t tail_block = size_t{64} << 10;

static std::string read_lines(int file, const std::string& path, uintmax_t offset, uintmax_t size) {
  return read_part(file, offset, size, "append to", path);
}

// The offset behind the last byte among the first `size` that `is_sought`; `least` when there is
// none behind that offset. `size` where the file has become shorter.
template <class Sought>
static uintmax_t end_of_last(int file, const std::string& path, uintmax_t size, uintmax_t least,
                             Sought is_sought) {
  for (uintmax_t end = size; end > least;) {
    const uintmax_t begin = end - std::min<uintmax_t>(end - least, tail_block);
    const std::string block = read_lines(file, path, begin, end - begin);
    if (block.size() != end - begin) return size;
    for (uintmax_t at = end; at > begin; --at)
      if (is_sought(block[at - begin - 1])) return at;
    end = begin;
  }
  return least;
}

static uintmax_t end_of_text(int file, const std::string& path, uintmax_t size) {
  return end_of_last(file, path, size, 0, [](char byte) { return byte != '\0'; });
}

// The offset behind the last end of a line among the first `size` bytes; longest_tail bytes are
// looked at.
static uintmax_t end_of_whole_lines(int file, const std::string& path, uintmax_t size) {
  const uintmax_t least = size > longest_tail ? size - longest_tail : 0;
  return end_of_last(file, path, size, least, [](char byte) { return byte == '\n'; });
}

static bool is_last_byte(int file, const std::string& path, uintmax_t size, char sought) {
  return read_lines(file, path, size - 1, 1) == std::string(1, sought);
}

// Whether the `size` bytes at `offset` can be a line, or the start of one.
static bool is_line(int file, const std::string& path, uintmax_t offset, uintmax_t size,
                    std::string_view line_start) {
  const std::string_view start = line_start.substr(0, size);
  return size < longest_tail && read_lines(file, path, offset, start.size()) == start;
}

// What stands behind the last line of a file.
struct file_tail {
  uintmax_t lines_end = 0;  // behind the last whole line
  uintmax_t text_end = 0;   // behind the last byte that is not zero
  uintmax_t size = 0;       // of the file

  bool has_text() const { return text_end != lines_end; }
  // Zeros behind lines of a file that is not ours are somebody's data.
  bool is_ours(int file, const std::string& path, std::string_view line_start) const {
    if (has_text()) return is_line(file, path, lines_end, text_end - lines_end, line_start);
    if (lines_end == 0) return true;
    const uintmax_t last_line = end_of_whole_lines(file, path, lines_end - 1);
    return is_line(file, path, last_line, lines_end - last_line, line_start);
  }
  std::string what_was_cut_off() const {
    const std::string bytes = std::to_string(size - lines_end) + " bytes";
    if (!has_text()) return "zeros behind the last line were cut off, " + bytes;
    return std::string("an unfinished line ") +
           (text_end == size ? "was" : "and the zeros behind it were") + " cut off, " + bytes +
           " without an end of line";
  }
};

uintmax_t cut_unfinished_line(int file, const std::string& path, uintmax_t size,
                              std::string_view line_start, const file_report& report) {
  if (size == 0 || is_last_byte(file, path, size, '\n')) return size;
  file_tail tail;
  tail.size = size;
  tail.text_end = end_of_text(file, path, size);
  tail.lines_end = end_of_whole_lines(file, path, tail.text_end);
  if (!tail.is_ours(file, path, line_start))
    raise_write_error("append to", path,
                      "its last " + std::to_string(size - tail.lines_end) +
                          " bytes without an end of line are no line of this program's");
  if (KP_ftruncate(file, static_cast<off_t>(tail.lines_end)) != 0)
    raise_write_error("cut the unfinished line off", path);
  report(terminal_text(path) + ": " + tail.what_was_cut_off());
  return tail.lines_end;
}
