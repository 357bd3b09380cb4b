// Output files that appear whole or not at all.
#ifndef RECORDING_FILES_WHOLE_FILE_H
#define RECORDING_FILES_WHOLE_FILE_H

#include <string>
#include <string_view>

// Makes `bytes` the content of the file at `path`: written to a temporary file in the same folder,
// with mode 0644 whatever the umask, synchronised, and renamed. A symbolic link stays, and its
// target is replaced, or made where there is none; links in a circle are the error ELOOP. What
// exists and is no regular file (a device, a pipe) is written to directly;
// "-" is standard output. Signals wait meanwhile. Raises file_error: the file is as it was then,
// and no temporary file is left behind.
void write_whole_file(const std::string& path, std::string_view bytes);

#endif
