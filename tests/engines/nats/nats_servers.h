// NATS servers with JetStream that a test starts, in folders of their own, on loopback.
#ifndef TESTS_ENGINES_NATS_NATS_SERVERS_H
#define TESTS_ENGINES_NATS_NATS_SERVERS_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/temp_folder.h"
#include "tools/ship/engine.h"

// One server, or a cluster of several. They end with the scope.
class nats_servers {
 public:
  // `settings` are more lines of each server's configuration, such as those of TLS. Fails the test
  // when they do not start.
  explicit nats_servers(size_t count = 1, const std::string& settings = "");
  ~nats_servers();
  nats_servers(const nats_servers&) = delete;
  nats_servers& operator=(const nats_servers&) = delete;

  // "nats://127.0.0.1:4222,127.0.0.1:4223?tls=off"
  std::string address() const;
  std::string address_of(size_t server) const;
  uint16_t port_of(size_t server) const { return servers_[server].port; }
  // That address, and as many replicas as there are servers.
  engine_options options() const;
  void signal(size_t server, int number) const;  // behind SIGSTOP all of it stands still
  void kill(size_t server);
  void start(size_t server);  // again, on its port and with what it has stored
  bool is_running(size_t server) const { return servers_[server].process > 0; }
  // The server that leads the stream; waits until there is one.
  size_t leader_of(const std::string& stream) const;
  std::string log_of(size_t server) const;
  // Of the files in which a server has the stream.
  uintmax_t stored_bytes(size_t server, const std::string& stream) const;
  // The configuration, for another start.
  void set_settings(const std::string& settings) { settings_ = settings; }
  // Bytes that the server may store, from its next start on; 0: any.
  void limit_store(size_t server, size_t bytes) { servers_[server].most_stored = bytes; }

 private:
  struct one_server {
    uint16_t port = 0;
    uint16_t route = 0;
    size_t most_stored = 0;
    pid_t process = -1;
  };

  void write_settings(size_t server) const;
  bool listens(one_server& server) const;
  std::string name_of(size_t server) const;

  temp_folder folder_;
  std::string settings_;
  std::vector<one_server> servers_;
};

// Tries, until it works, and fails the test two minutes behind the first time when it does not.
void nats_eventually(const std::function<void()>& work);

#endif
