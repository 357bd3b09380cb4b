// Ports of this machine that nobody has.
#ifndef TESTS_ENGINES_SUPPORT_LOOPBACK_SOCKET_H
#define TESTS_ENGINES_SUPPORT_LOOPBACK_SOCKET_H

#include <cstdint>

#include "recording/files/descriptor.h"

// A connection to the port of 127.0.0.1; not open where nobody listens there.
open_descriptor loopback_connection(uint16_t port);
inline bool is_listened_to(uint16_t port) {
  return loopback_connection(port).is_open();
}

// Has a port for itself as long as it lives. Behind that another program may take it.
class loopback_socket {
 public:
  // With flags of socket() beside its own.
  explicit loopback_socket(int flags = 0);
  void listen() const;
  int get() const { return socket_.get(); }
  uint16_t port() const { return port_; }

 private:
  open_descriptor socket_;
  uint16_t port_;
};

#endif
