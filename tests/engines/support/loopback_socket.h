// Ports of this machine that nobody has.
#ifndef TESTS_ENGINES_SUPPORT_LOOPBACK_SOCKET_H
#define TESTS_ENGINES_SUPPORT_LOOPBACK_SOCKET_H

#include <cstdint>

#include "recording/files/descriptor.h"

// Whether somebody listens at the port of 127.0.0.1.
bool is_listened_to(uint16_t port);

// Has a port for itself as long as it lives. Behind that another program may take it.
class loopback_socket {
 public:
  loopback_socket();
  void listen() const;
  int get() const { return socket_.get(); }
  uint16_t port() const { return port_; }

 private:
  open_descriptor socket_;
  uint16_t port_;
};

#endif
