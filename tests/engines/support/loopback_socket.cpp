#include "tests/engines/support/loopback_socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <utility>

static sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

open_descriptor loopback_connection(uint16_t port) {
  open_descriptor client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopback(port);
  const auto* const there = reinterpret_cast<const sockaddr*>(&address);
  return connect(client.get(), there, sizeof address) == 0 ? std::move(client) : open_descriptor();
}

loopback_socket::loopback_socket(int flags)
    : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0)) {
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  auto* const bound = reinterpret_cast<sockaddr*>(&address);
  EXPECT_EQ(bind(get(), bound, size), 0);
  EXPECT_EQ(getsockname(get(), bound, &size), 0);
  port_ = ntohs(address.sin_port);
}

void loopback_socket::listen() const {
  EXPECT_EQ(::listen(get(), SOMAXCONN), 0);
}
