#include "recording/files/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <filesystem>

#include "base/kp_clib.h"
#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"

// --- Reading

// False, with errno, when that fails.
static bool read_all(int descriptor, std::string& bytes, const size_limit_function& limit) {
  std::array<char, 65536> buffer;
  while (bytes.size() <= limit(bytes)) {
    const ssize_t got = KP_read(descriptor, buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) return true;
    bytes.append(buffer.data(), static_cast<size_t>(got));
  }
  bytes.resize(limit(bytes) + 1);
  return true;
}

std::string read_file(const std::string& path, const size_limit_function& limit) {
  const bool is_standard = path == "-";
  const open_descriptor file(is_standard ? -1 : KP_open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::string bytes;
  if ((!is_standard && !file.is_open()) ||
      !read_all(is_standard ? STDIN_FILENO : file.get(), bytes, limit))
    throw file_error(file_use::reading, "read", input_name(path), errno);
  return bytes;
}

std::string read_file(const std::string& path, size_t limit) {
  return read_file(path, [limit](std::string_view) { return limit; });
}

// --- Writing

static constexpr int link_limit = 40;  // as the system has it

// Holds signals back for a scope, so that none ends the process between making a temporary file and
// renaming it.
class held_back_signals {
 public:
  held_back_signals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before_);
  }
  ~held_back_signals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  held_back_signals(const held_back_signals&) = delete;
  held_back_signals& operator=(const held_back_signals&) = delete;

 private:
  sigset_t before_{};
};

// Whether all went well, closing too; errno is that of the first failure.
static bool close_written(int descriptor, bool good) {
  const int error = errno;
  if (KP_close(descriptor) != 0 && good) return false;
  errno = error;
  return good;
}

// The path behind symbolic links, whether there is a file or not. Empty, with errno, where that is
// not known.
static std::string resolved_path(const std::string& path) {
  std::filesystem::path resolved = path;
  std::array<char, PATH_MAX> target;
  for (int links = 0; links < link_limit; ++links) {
    const ssize_t size = KP_readlink(resolved.c_str(), target.data(), target.size());
    if (size < 0 && errno != EINVAL && errno != ENOENT) return "";
    if (size < 0) break;
    resolved = resolved.parent_path() / std::string(target.data(), static_cast<size_t>(size));
  }
  return resolved;
}

// Renames are lasting once their folder is synchronised. Not every file system can, which is no
// failure of the file itself.
static void synchronise_folder(const std::string& folder) {
  const open_descriptor opened(KP_open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened.is_open()) static_cast<void>(KP_fsync(opened.get()));
}

static bool fill_temporary_file(int descriptor, std::string_view bytes, bool synced) {
  return close_written(descriptor,
                       write_all(descriptor, bytes) &&
                           KP_fchmod(descriptor, S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH) == 0 &&
                           (!synced || KP_fsync(descriptor) == 0));
}

static bool replace_regular_file(const std::string& path, std::string_view bytes, bool synced) {
  const held_back_signals held_back;
  const std::string folder = place_of(path).folder;
  std::string temporary = folder + "/.kplog-XXXXXX";
  const int descriptor = KP_mkostemp(temporary.data(), O_CLOEXEC);
  if (descriptor < 0) return false;
  if (fill_temporary_file(descriptor, bytes, synced) &&
      KP_rename(temporary.c_str(), path.c_str()) == 0) {
    if (synced) synchronise_folder(folder);
    return true;
  }
  const int error = errno;
  KP_unlink(temporary.c_str());
  errno = error;
  return false;
}

// False, with errno, when that fails.
static bool write_file(const std::string& path, std::string_view bytes, bool synced) {
  if (path == "-") return write_all(STDOUT_FILENO, bytes);
  struct stat status {};
  const bool exists = KP_stat(path.c_str(), &status) == 0;
  if (!exists && errno != ENOENT) return false;
  if (exists && !S_ISREG(status.st_mode)) {
    const int descriptor = KP_open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    return descriptor >= 0 && close_written(descriptor, write_all(descriptor, bytes));
  }
  const std::string resolved = resolved_path(path);
  return !resolved.empty() && replace_regular_file(resolved, bytes, synced);
}

void write_whole_file(const std::string& path, std::string_view bytes, bool synced) {
  if (!write_file(path, bytes, synced))
    throw file_error(file_use::writing, "write", output_name(path), errno);
}
