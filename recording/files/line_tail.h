// What a process that died, or a power cut, left behind the last line of a file.
#ifndef RECORDING_FILES_LINE_TAIL_H
#define RECORDING_FILES_LINE_TAIL_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

// Told, in one line without its end, of what is odd about a file.
using file_report = std::function<void(const std::string& note)>;

// Cuts off what stands behind the last end of a line among the `size` bytes of an open file: an
// unfinished line, zeros. Where it does not look like one of lines that begin with `line_start`,
// file_error is raised and the file left alone. Returns the size that the file has then.
uintmax_t cut_unfinished_line(int file, const std::string& path, uintmax_t size,
                              std::string_view line_start, const file_report& report);

#endif
