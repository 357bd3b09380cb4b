#include "recording/files/standard_output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "recording/files/file_error.h"

static bool wait_for_room() {
  struct pollfd output {
    STDOUT_FILENO, POLLOUT, 0
  };
  return poll(&output, 1, -1) >= 0 || errno == EINTR;
}

// The bytes written before an error, which is in errno; or all.
static size_t write_some(const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = write(STDOUT_FILENO, text.data() + done, text.size() - done);
    if (written >= 0)
      done += static_cast<size_t>(written);
    else if (errno == EAGAIN ? !wait_for_room() : errno != EINTR)
      break;
  }
  return done;
}

void write_standard_output(std::string& text, bool synced) {
  const size_t done = write_some(text);
  const bool is_whole = done == text.size();
  const int error = errno;
  text.erase(0, done);
  errno = error;
  if (!is_whole) raise_write_error("write to", "standard output");
  // Pipes and terminals have no disk.
  const bool is_lost =
      synced && fsync(STDOUT_FILENO) != 0 && errno != EINVAL && errno != EROFS && errno != ENOTSUP;
  if (is_lost) raise_write_error("write to", "standard output");
}
