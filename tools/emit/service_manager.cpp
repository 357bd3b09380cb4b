#include "tools/emit/service_manager.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"

// Twice in the time that it waits for.
service_manager::service_manager() {
  uint64_t microseconds = 0;
  if (sd_watchdog_enabled(0, &microseconds) > 0)
    interval_ = std::chrono::microseconds(microseconds / 2);
  next_ = clock::now() + interval_;
}

void service_manager::ready() {
  sd_notify(0, "READY=1\nSTATUS=Taking records");
}

void service_manager::reloading() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%lld\nSTATUS=Reading the settings again",
             static_cast<long long>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000);
}

void service_manager::stopping() {
  sd_notify(0, "STOPPING=1\nSTATUS=Writing what was sent");
}

void service_manager::look() {
  if (interval_.count() == 0 || clock::now() < next_) return;
  next_ = clock::now() + interval_;
  sd_notify(0, "WATCHDOG=1");
}

std::chrono::milliseconds service_manager::patience() const {
  if (interval_.count() == 0) return std::chrono::milliseconds(-1);
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_ - clock::now());
  return std::max(left, std::chrono::milliseconds(0));
}

open_descriptor handed_over_socket(const std::string& path) {
  const int count = sd_listen_fds(0);
  for (int i = 0; i < count; ++i) {
    const int socket = SD_LISTEN_FDS_START + i;
    if (sd_is_socket_unix(socket, SOCK_STREAM, 1, path.c_str(), 0) <= 0) continue;
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
    return open_descriptor(socket);
  }
  if (count > 0) throw file_error(file_use::reading, "take over a socket of", path, ENOENT);
  return open_descriptor();
}

bool does_journal_read_standard_error() {
  const char* const journal = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  return journal != nullptr && KP_fstat(STDERR_FILENO, &status) == 0 &&
         journal == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}
