#include "recording/files/file_error.h"

#include <cerrno>
#include <system_error>

#include "base/kp_clib.h"
#include "recording/text/escape.h"

file_error::file_error(file_use use, const std::string& action, const std::string& name,
                       const std::string& reason)
    : std::runtime_error("cannot " + action + " " + name + ": " + reason), use_(use), name_(name) {}

file_error::file_error(file_use use, const std::string& action, const std::string& name, int error)
    : file_error(use, action, name, std::generic_category().message(error)) {
  error_ = error;
}

void raise_write_error(const char* action, const std::string& path) {
  const int error = errno;
  throw file_error(file_use::writing, action, terminal_text(path), error);
}

void raise_write_error(const char* action, const std::string& path, const std::string& reason) {
  throw file_error(file_use::writing, action, terminal_text(path), reason);
}

bool says_no_file(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case EISDIR:
    case ELOOP:
    case ENXIO:
    case ENAMETOOLONG:
    case EACCES:
    case EPERM:
    case EROFS:
      return true;
    default:
      return false;
  }
}

bool says_no_descriptor(int error) {
  return error == EMFILE || error == ENFILE;
}

void check_written_file(const char* action, const std::string& path, const struct stat& status) {
  if (!S_ISREG(status.st_mode)) raise_write_error(action, path, "it is not a regular file");
  if (status.st_nlink > 1)
    raise_write_error(
        action, path,
        "it has " + std::to_string(status.st_nlink) + " names (hard links), and may have one");
}

void check_written_path(const char* action, const std::string& path) {
  struct stat status {};
  const bool is_there = KP_lstat(path.c_str(), &status) == 0;
  if (!is_there || S_ISLNK(status.st_mode) || S_ISDIR(status.st_mode)) return;
  check_written_file(action, path, status);
}
