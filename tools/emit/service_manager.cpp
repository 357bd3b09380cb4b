#include "tools/emit/service_manager.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"

static open_descriptor connected_to_manager() {
  const char* const path = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path == nullptr || strlen(path) >= sizeof address.sun_path) return open_descriptor();
  memcpy(address.sun_path, path, strlen(path));
  if (*path == '@') address.sun_path[0] = '\0';  // no file
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(path) +
                                           (*path == '@' ? 0 : 1));
  open_descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const bool is_connected =
      connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) == 0;
  return is_connected ? std::move(socket) : open_descriptor();
}

// sd_notify would wait until there is room in the manager's queue. A manager that began anew has
// another socket of that name.
static void tell(const std::string& state) {
  if (const open_descriptor manager = connected_to_manager(); manager.is_open())
    static_cast<void>(send(manager.get(), state.data(), state.size(), MSG_NOSIGNAL));
}

// The watchdog: twice in the time that it waits for.
service_manager::service_manager(words told) : words_(std::move(told)) {
  uint64_t microseconds = 0;
  if (sd_watchdog_enabled(0, &microseconds) > 0)
    interval_ = std::chrono::microseconds(microseconds / 2);
  next_ = clock::now() + interval_;
}

void service_manager::ready() {
  tell("READY=1\nSTATUS=" + words_.serving);
}

void service_manager::reloading() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  tell("RELOADING=1\nMONOTONIC_USEC=" +
       std::to_string(int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000) +
       "\nSTATUS=Reading the settings again");
}

void service_manager::stopping() {
  tell("STOPPING=1\nSTATUS=" + words_.stopping);
}

void service_manager::look() {
  if (interval_.count() == 0 || clock::now() < next_) return;
  next_ = clock::now() + interval_;
  tell("WATCHDOG=1");
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
  if (count > 0)
    throw file_error(file_use::reading, "take over a socket of", path,
                     "the sockets that were handed over have other paths, or do not listen");
  return open_descriptor();
}

bool does_journal_read_standard_error() {
  const char* const journal = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  return journal != nullptr && KP_fstat(STDERR_FILENO, &status) == 0 &&
         journal == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}
