// A network between a program and a server, which can be cut.
#ifndef TESTS_ENGINES_SUPPORT_CUT_LINE_H
#define TESTS_ENGINES_SUPPORT_CUT_LINE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "tests/engines/support/loopback_socket.h"

// Whoever connects to its port of 127.0.0.1 comes to the server's port there. A thread carries the
// bytes.
class cut_line {
 public:
  explicit cut_line(uint16_t server);
  ~cut_line();
  cut_line(const cut_line&) = delete;
  cut_line& operator=(const cut_line&) = delete;

  uint16_t port() const { return listener_.port(); }

  void cut() { state_ = line_state::cut; }    // resets all connections, and those that come
  void hold() { state_ = line_state::held; }  // carries nothing: neither side hears of it
  // Carries again what comes; connections that were held go on.
  void mend() { state_ = line_state::whole; }
  // The server has another port now.
  void lead_to(uint16_t server) { server_ = server; }

 private:
  enum class line_state { whole, held, cut };
  struct connection;

  void carry();
  void take_new();
  void carry_all(int patience);

  std::atomic<uint16_t> server_;
  std::atomic<line_state> state_ = line_state::whole;
  std::atomic<bool> is_to_end_ = false;
  loopback_socket listener_;
  std::vector<std::unique_ptr<connection>> connections_;
  std::thread carrier_;
};

#endif
