// Files that are read whole, and files that appear whole or not at all.
#ifndef RECORDING_FILES_WHOLE_FILE_H
#define RECORDING_FILES_WHOLE_FILE_H

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

// Makes `bytes` the content of the file at `path`: written to a temporary file in the same folder,
// with mode 0644 whatever the umask, synchronised, and renamed. A symbolic link stays, and its
// target is replaced, or made where there is none; links in a circle are the error ELOOP. What
// exists and is no regular file (a device, a pipe) is written to directly;
// "-" is standard output. Signals wait meanwhile. Raises file_error: the file is as it was then,
// and no temporary file is left behind. What need not outlive the system is not synchronised.
void write_whole_file(const std::string& path, std::string_view bytes, bool synced = true);

#endif
