// Why accepted entries do not get where they were to go.
#ifndef RECORDING_FILES_FILE_ERROR_H
#define RECORDING_FILES_FILE_ERROR_H

#include <sys/stat.h>

#include <stdexcept>
#include <string>

// A file that cannot be written. The text names the file and the reason.
class sink_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Raises "cannot ACTION PATH: REASON", the reason being that of errno.
[[noreturn]] void raise_sink_error(const char* action, const std::string& path);

// Raises sink_error unless it is a regular file that has one name: what is written through one name
// of a file changes what stands under the others.
void check_written_file(const char* action, const std::string& path, const struct stat& status);

// The same for what is at the path, before anything is made beside it. Nothing may be there; of
// links and folders opening them tells.
void check_written_path(const char* action, const std::string& path);

#endif
