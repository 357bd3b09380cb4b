#include "recording/files/read_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/kp_clib.h"
#include "recording/files/descriptor.h"

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

bool read_file(const std::string& path, std::string& bytes, const size_limit_function& limit) {
  if (path == "-") return read_all(STDIN_FILENO, bytes, limit);
  const open_descriptor file(KP_open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return file.is_open() && read_all(file.get(), bytes, limit);
}

bool read_file(const std::string& path, std::string& bytes, size_t limit) {
  return read_file(path, bytes, [limit](std::string_view) { return limit; });
}
