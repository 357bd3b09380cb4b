#include "recording/files/read_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/kp_clib.h"
#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"

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
