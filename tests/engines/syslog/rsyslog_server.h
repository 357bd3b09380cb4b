// rsyslog, as an ordinary process: what it makes of the messages that it receives over TLS.
#ifndef TESTS_ENGINES_SYSLOG_RSYSLOG_SERVER_H
#define TESTS_ENGINES_SYSLOG_RSYSLOG_SERVER_H

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/engines/support/piped_process.h"
#include "tests/engines/support/tls_certificates.h"
#include "tests/support/temp_folder.h"

class rsyslog_server {
 public:
  // `clients` is rsyslog's word for whom it takes messages of: "anon" of everybody,
  // "x509/certvalid" of those with a certificate of the authority.
  rsyslog_server(const tls_authority& authority, const tls_identity& identity,
                 const std::string& clients = "anon");

  int port() const { return port_; }
  // Of the name "localhost".
  std::string address(const std::string& query = "") const;
  void kill() { process_->end(); }
  void start_again();  // at the same port
  // The messages so far, at least that many of them; the fields of "data" by their elements.
  std::vector<nlohmann::json> messages(size_t least) const;

 private:
  std::string configuration() const;
  void start();

  temp_folder folder_;
  std::string authority_;
  tls_identity identity_;
  std::string clients_;
  int port_ = 0;
  std::unique_ptr<piped_process> process_;
};

#endif
