#include "recording/files/file_error.h"

#include <cerrno>
#include <system_error>

#include "recording/text/terminal_text.h"

void raise_sink_error(const char* action, const std::string& path) {
  const std::string reason = std::generic_category().message(errno);
  throw sink_error(std::string("cannot ") + action + " " + terminal_text(path) + ": " + reason);
}

void check_written_file(const char* action, const std::string& path, const struct stat& status) {
  const std::string place = std::string("cannot ") + action + " " + terminal_text(path) + ": ";
  if (!S_ISREG(status.st_mode)) throw sink_error(place + "it is not a regular file");
  if (status.st_nlink > 1)
    throw sink_error(place + "it has " + std::to_string(status.st_nlink) +
                     " names (hard links), and may have one");
}

void check_written_path(const char* action, const std::string& path) {
  struct stat status {};
  const bool is_there = lstat(path.c_str(), &status) == 0;
  if (!is_there || S_ISLNK(status.st_mode) || S_ISDIR(status.st_mode)) return;
  check_written_file(action, path, status);
}
