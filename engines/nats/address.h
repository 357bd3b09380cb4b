// Where JetStream is: nats://[USER@]HOST[:PORT][,HOST[:PORT]]...[?tls=off]
#ifndef ENGINES_NATS_ADDRESS_H
#define ENGINES_NATS_ADDRESS_H

#include <string>
#include <string_view>
#include <vector>

struct nats_address {
  std::vector<std::string> servers;  // "nats://host:4222"; the port may be missing
  std::vector<std::string> hosts;    // of these, "host"
  std::string user;                  // empty: none is given
  bool is_tls = true;                // and the servers are verified
};

// Raises engine_error, with the address at its begin, for what is none.
nats_address nats_address_of(const std::string& url);

#endif
