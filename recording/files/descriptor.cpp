#include "recording/files/descriptor.h"

#include <poll.h>

#include <cerrno>

#include "recording/files/file_error.h"

bool write_all(int descriptor, std::string_view& bytes) {
  while (!bytes.empty()) {
    const ssize_t written = KP_write(descriptor, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<size_t>(written));
      continue;
    }
    pollfd room{descriptor, POLLOUT, 0};
    if (errno == EAGAIN && poll(&room, 1, -1) >= 0) continue;
    if (errno != EINTR) return false;
  }
  return true;
}

bool write_all_at(int descriptor, std::string_view bytes, off_t offset) {
  while (!bytes.empty()) {
    const ssize_t written = KP_pwrite(descriptor, bytes.data(), bytes.size(), offset);
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<size_t>(written));
    offset += written;
  }
  return true;
}

std::string read_part(int descriptor, uintmax_t offset, size_t size, const char* action,
                      const std::string& path) {
  std::string bytes(size, '\0');
  size_t done = 0;
  while (done < size) {
    const ssize_t got =
        KP_pread(descriptor, bytes.data() + done, size - done, static_cast<off_t>(offset + done));
    if (got < 0) raise_write_error(action, path);
    if (got == 0) break;
    done += static_cast<size_t>(got);
  }
  bytes.resize(done);
  return bytes;
}

void write_standard_output(std::string& text, bool synced) {
  std::string_view left = text;
  const bool is_whole = write_all(STDOUT_FILENO, left);
  text.erase(0, text.size() - left.size());
  if (!is_whole) raise_write_error("write to", standard_output_name);
  // Pipes and terminals have no disk.
  const bool is_lost = synced && KP_fsync(STDOUT_FILENO) != 0 && errno != EINVAL &&
                       errno != EROFS && errno != ENOTSUP;
  if (is_lost) raise_write_error("write to", standard_output_name);
}
