// A receiver of OTLP that decodes with the published definitions, and what it has received.
#ifndef TESTS_ENGINES_OTLP_OTLP_RECEIVER_H
#define TESTS_ENGINES_OTLP_OTLP_RECEIVER_H

#include <deque>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/engines/support/piped_process.h"
#include "tests/support/temp_folder.h"

class otlp_receiver {
 public:
  // With a key and a certificate it has TLS.
  explicit otlp_receiver(const std::string& key = "", const std::string& certificate = "");

  int port() const { return port_; }
  std::string address(const std::string& path = "") const;
  // What it does with the next request that has no plan yet: tests/engines/otlp/receiver.
  void plan(const std::string& answer);
  // The next request; a field "error" says why it could not be decoded.
  nlohmann::json request();

 private:
  temp_folder folder_;
  bool has_tls_;
  piped_process process_;
  int port_;
  std::deque<std::string> requests_;  // that came while something else was waited for
};

// The records of a request, in its order.
std::vector<nlohmann::json> log_records(const nlohmann::json& request);

// Attributes by their names: each an AnyValue as it was decoded.
nlohmann::json attributes_of(const nlohmann::json& holder);

#endif
