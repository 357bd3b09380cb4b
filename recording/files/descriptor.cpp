#include "recording/files/descriptor.h"

#include <poll.h>

#include <cerrno>

#include "base/kp_clib.h"

static bool wait_for_room(int descriptor) {
  pollfd room{descriptor, POLLOUT, 0};
  return poll(&room, 1, -1) >= 0 || errno == EINTR;
}

bool write_all(int descriptor, std::string_view& bytes) {
  while (!bytes.empty()) {
    const ssize_t written = KP_write(descriptor, bytes.data(), bytes.size());
    if (written >= 0)
      bytes.remove_prefix(static_cast<size_t>(written));
    else if (errno == EAGAIN ? !wait_for_room(descriptor) : errno != EINTR)
      return false;
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
