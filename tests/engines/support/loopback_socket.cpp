#include "tests/engines/support/loopback_socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

static sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool is_listened_to(uint16_t port) {
  const open_descriptor client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopback(port);
  return connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

loopback_socket::loopback_socket() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  auto* const bound = reinterpret_cast<sockaddr*>(&address);
  EXPECT_EQ(bind(get(), bound, size), 0);
  EXPECT_EQ(getsockname(get(), bound, &size), 0);
  port_ = ntohs(address.sin_port);
}

void loopback_socket::listen() const {
  constexpr int waiting = 16;
  EXPECT_EQ(::listen(get(), waiting), 0);
}
