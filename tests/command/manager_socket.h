// The other end of sd_notify.
#ifndef TESTS_COMMAND_MANAGER_SOCKET_H
#define TESTS_COMMAND_MANAGER_SOCKET_H

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <string>

// What a service manager hears of a service.
class manager_socket {
 public:
  explicit manager_socket(const std::string& path)
      : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~manager_socket() { close(socket_); }
  manager_socket(const manager_socket&) = delete;
  manager_socket& operator=(const manager_socket&) = delete;

  // The next message; "" when none comes in a minute.
  std::string heard() const {
    pollfd waiting{socket_, POLLIN, 0};
    if (poll(&waiting, 1, 60000) != 1) return "";
    std::array<char, 4096> text;
    const ssize_t size = recv(socket_, text.data(), text.size(), 0);
    return size < 0 ? "" : std::string(text.data(), static_cast<size_t>(size));
  }

 private:
  int socket_;
};

#endif
