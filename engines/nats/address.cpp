#include "engines/nats/address.h"

#include "engines/common/address.h"
#include "recording/text/number.h"
#include "recording/text/words.h"
#include "tools/ship/engine.h"

static constexpr std::string_view nats_scheme = "nats://";

// What stands before the mark, and only that is left behind it; all where the mark is not there.
static std::string_view nats_cut(std::string_view& text, char mark) {
  const size_t end = text.find(mark);
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return part;
}

static void nats_take_setting(const std::string& url, std::string_view setting,
                              nats_address& address) {
  if (setting != "tls=off" && setting != "tls=on")
    throw engine_error(url + ": " + in_quotes(setting) +
                       " is no setting of a NATS address; \"tls=off\" is one");
  address.is_tls = setting == "tls=on";
}

// "broker:4222", "[::1]:4222", "broker"
static std::string nats_host_of(const std::string& url, std::string_view server) {
  const bool is_in_brackets = server.starts_with('[') && server.find(']') != std::string_view::npos;
  const size_t colon = server.find(':', is_in_brackets ? server.find(']') : 0);
  std::string host(server.substr(0, colon));
  if (host.empty()) throw engine_error(url + ": a server's name is missing");
  if (is_in_brackets && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  if (!is_host_name(host, is_in_brackets))
    throw engine_error(url + ": " + in_quotes(shortened(server)) +
                       " is no server: HOST:PORT or [IPV6]:PORT is expected");
  if (colon == std::string_view::npos) return host;
  const std::string_view text = server.substr(colon + 1);
  const auto port = number_of<uint16_t>(text);
  if (!port || *port == 0)
    throw engine_error(url + ": " + in_quotes(shortened(text)) +
                       " is no port, which is a number from 1 to 65535");
  return host;
}

nats_address nats_address_of(const std::string& url) {
  std::string_view rest = url;
  if (!rest.starts_with(nats_scheme))
    throw engine_error(url + ": a NATS address begins with nats://");
  rest.remove_prefix(nats_scheme.size());
  nats_address address;
  std::string_view settings = rest;
  rest = nats_cut(settings, '?');
  while (!settings.empty()) nats_take_setting(url, nats_cut(settings, '&'), address);
  if (const size_t at = rest.rfind('@'); at != std::string_view::npos) {
    address.user = rest.substr(0, at);
    rest.remove_prefix(at + 1);
    if (address.user.find(',') != std::string::npos)
      throw engine_error(url + ": one user stands before the servers, and is that of all of them");
  }
  if (rest.ends_with('/')) rest.remove_suffix(1);
  if (rest.find('/') != std::string_view::npos)
    throw engine_error(url + ": a NATS address has no path; the stream is told with --stream");
  do {
    const std::string_view server = nats_cut(rest, ',');
    if (server.empty()) throw engine_error(url + ": a server's name is missing");
    address.hosts.push_back(nats_host_of(url, server));
    address.servers.push_back(std::string(nats_scheme) + std::string(server));
  } while (!rest.empty());
  return address;
}
