// Why a file cannot be read or written.
#ifndef RECORDING_FILES_FILE_ERROR_H
#define RECORDING_FILES_FILE_ERROR_H

#include <sys/stat.h>

#include <stdexcept>
#include <string>

enum class file_use { reading, writing };

// A file that cannot be used. The text names the file and the reason.
class file_error : public std::runtime_error {
 public:
  file_error(file_use use, const std::string& text) : std::runtime_error(text), use_(use) {}
  // "cannot ACTION NAME: REASON". The name, of the file or a stream, is not escaped.
  file_error(file_use use, const std::string& action, const std::string& name,
             const std::string& reason);
  // The reason is that of an errno.
  file_error(file_use use, const std::string& action, const std::string& name, int error);

  // What it was to be used for: records come from what is read, and go to what is written.
  file_use use() const { return use_; }
  const std::string& name() const { return name_; }  // empty: of no one file
  int error() const { return error_; }               // 0: the reason is no errno's

 private:
  file_use use_;
  std::string name_;
  int error_ = 0;
};

// Raises that of a file to be written, with the path escaped; without a reason, that of errno.
[[noreturn]] void raise_write_error(const char* action, const std::string& path);
[[noreturn]] void raise_write_error(const char* action, const std::string& path,
                                    const std::string& reason);

// Whether an errno says that a path leads to no file that this process may use, and not that the
// system fails at the moment.
bool says_no_file(int error);
// Whether an errno says that the process, or the system, may open no more files at the moment.
bool says_no_descriptor(int error);

// Raises file_error unless it is a regular file that has one name: what is written through one name
// of a file changes what stands under the others.
void check_written_file(const char* action, const std::string& path, const struct stat& status);

// The same for what is at the path, before anything is made beside it. Nothing may be there; of
// links and folders opening them tells.
void check_written_path(const char* action, const std::string& path);

#endif
