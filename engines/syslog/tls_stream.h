// A connection with TLS, by OpenSSL: to whom it is meant, or to nobody.
#ifndef ENGINES_SYSLOG_TLS_STREAM_H
#define ENGINES_SYSLOG_TLS_STREAM_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "tools/ship/engine.h"

// To whom, and how it is known who that is.
struct tls_peer {
  std::string shown;  // begins texts of errors
  std::string host;   // a name or an address, which its certificate has to have
  uint16_t port = 0;
  std::string authorities;  // a file; empty: what the system trusts
  std::string certificate;  // our own, a file; empty: none
  std::string key;          // of that, a file
};

struct tls_patience {
  std::chrono::milliseconds connecting{10000};
  std::chrono::milliseconds silence{30000};  // while something is waited for
};

// Everything raises engine_error where it fails, where nothing happens for too long, and where it
// is to end. Used by one thread at a time.
class tls_stream {
 public:
  // Connects, and looks at the other one's certificate. What is given lives as long as this.
  tls_stream(const tls_peer& peer, const engine_options& options, const tls_patience& patience);
  ~tls_stream();

  void send(std::string_view bytes);
  // Whether the other end is there, as far as is known without asking it.
  bool is_open();
  // Says that this was all, and waits until the other end, which has read it then, says so, too.
  void end();

 private:
  struct state;

  std::unique_ptr<state> state_;
};

#endif
