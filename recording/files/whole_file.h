// Output files that appear whole or not at all.
#ifndef RECORDING_FILES_WHOLE_FILE_H
#define RECORDING_FILES_WHOLE_FILE_H

#include <string>
#include <string_view>

// Makes `bytes` the content of the file at `path`: written to a temporary file in the same folder,
// with mode 0644 whatever the umask, synchronised, and renamed. A symbolic link stays, and its
// target is replaced, or made where there is none; links in a circle are the error ELOOP. What
// exists and is no regular file (a device, a pipe) is written to directly;
// "-" is standard output. On failure the file is as it was, no temporary file is left behind, and
// the result is false with errno set. Signals wait meanwhile.
bool write_atomic_file(const std::string& path, std::string_view bytes);

#endif
