// A whole file in memory.
#ifndef RECORDING_FILES_READ_FILE_H
#define RECORDING_FILES_READ_FILE_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

// How large a file may be that begins with these bytes.
using size_limit_function = std::function<size_t(std::string_view bytes)>;

// Reads standard input for "-" and else the file, at most one byte more than the limit, which tells
// whoever has the bytes that the file is larger. Raises file_error.
std::string read_file(const std::string& path, size_t limit);
std::string read_file(const std::string& path, const size_limit_function& limit);

#endif
