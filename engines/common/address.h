// Where an engine is, as its URL tells it: otlp+http://user@host:4318/path?option=value
#ifndef ENGINES_COMMON_ADDRESS_H
#define ENGINES_COMMON_ADDRESS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/ship/engine.h"

struct engine_address {
  std::string scheme;  // "otlp+http"
  std::string user;    // empty: none
  std::string host;    // a name or an address; one of IPv6 without its brackets
  uint16_t port = 0;
  std::string path;                                          // as it is written; empty: none
  std::vector<std::pair<std::string, std::string>> options;  // of the query, in its order

  // What texts for people begin with: "otlp+http://host:4318".
  std::string shown() const;
  // The host as URLs have it, an address of IPv6 in brackets.
  std::string host_of_url() const;
};

// Of what stands behind "?": names and values, with the bytes that "%41" and its like stand for.
std::vector<std::pair<std::string, std::string>> address_parameters(std::string_view query);

// Whether a server may be called that: a name, an address of IPv4, or, without its brackets, one of
// IPv6, perhaps with its zone.
bool is_host_name(std::string_view host, bool is_in_brackets);

// Raises engine_error, without the URL's user, for what is no such URL and for one that holds a
// password. Without a port in the URL it is that one.
engine_address engine_address_of(const std::string& url, uint16_t port);

// For an option of the query that the engine does not know.
engine_error unknown_option(const engine_address& address, const std::string& name);

#endif
