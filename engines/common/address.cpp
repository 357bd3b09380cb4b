#include "engines/common/address.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <string_view>

#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/words.h"

std::string engine_address::host_of_url() const {
  return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

std::string engine_address::shown() const {
  return scheme + "://" + terminal_text(host_of_url()) + ":" + std::to_string(port);
}

// Takes what stands before the mark, and the mark; all of the text where there is none.
static std::string_view address_part(std::string_view& text, std::string_view mark) {
  const size_t end = std::min(text.find(mark), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + mark.size(), text.size()));
  return part;
}

// With the bytes that "%41" and its like stand for.
static std::string address_text(std::string_view escaped) {
  std::string text;
  while (!escaped.empty()) {
    const bool is_escape = escaped.size() >= 3 && escaped.front() == '%';
    const auto byte = is_escape ? number_of<uint8_t>(escaped.substr(1, 2), 16) : std::nullopt;
    text += byte ? static_cast<char>(*byte) : escaped.front();
    escaped.remove_prefix(byte ? 3 : 1);
  }
  return text;
}

static void read_user(std::string_view user, engine_address& address) {
  if (user.find(':') != std::string_view::npos)
    throw engine_error(address.scheme +
                       ": a password does not belong into a URL, which others see");
  address.user = address_text(user);
}

bool is_host_name(std::string_view host, bool is_in_brackets) {
  if (is_in_brackets) {
    const std::string address(host.substr(0, host.find('%')));
    in6_addr bytes{};
    return inet_pton(AF_INET6, address.c_str(), &bytes) == 1;
  }
  return !host.empty() && std::ranges::all_of(host, [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_' || c >= 0x80;
  });
}

static engine_error no_host(const engine_address& address, std::string_view place) {
  return engine_error(address.scheme + ": " + in_quotes(terminal_text(shortened(place))) +
                      " is no host and port: HOST:PORT or [IPV6]:PORT is expected");
}

// "host:4318", "[::1]:4318", "host"
static void read_host(std::string_view place, engine_address& address) {
  const bool is_in_brackets = place.starts_with('[');
  const size_t end = is_in_brackets ? place.find(']') : place.rfind(':');
  const std::string_view host = place.substr(0, end);
  address.host = host.substr(is_in_brackets ? 1 : 0);
  if (address.host.empty())
    throw engine_error(address.scheme + ": the URL names no host: " + address.scheme +
                       "://HOST:PORT is expected");
  if (!is_host_name(address.host, is_in_brackets) ||
      (is_in_brackets && end == std::string_view::npos))
    throw no_host(address, place);
  if (end == std::string_view::npos) return;
  std::string_view behind = place.substr(end + (is_in_brackets ? 1 : 0));
  if (behind.empty()) return;
  const auto port = number_of<uint16_t>(behind.substr(1));
  if (behind.front() != ':' || !port || *port == 0)
    throw engine_error(address.scheme + ": " + in_quotes(terminal_text(shortened(behind))) +
                       " is no port: a number from 1 to 65535 behind a colon");
  address.port = *port;
}

static void check_path(const engine_address& address) {
  const bool is_path =
      std::ranges::all_of(address.path, [](char c) { return c > ' ' && c <= '~' && c != '#'; });
  if (!is_path)
    throw engine_error(address.shown() + ": the path " +
                       in_quotes(terminal_text(shortened(address.path))) +
                       " holds what a URL has as %20 and its like, or not at all");
}

std::vector<std::pair<std::string, std::string>> address_parameters(std::string_view query) {
  std::vector<std::pair<std::string, std::string>> parameters;
  while (!query.empty()) {
    std::string_view value = address_part(query, "&");
    const std::string_view name = address_part(value, "=");
    parameters.emplace_back(address_text(name), address_text(value));
  }
  return parameters;
}

engine_error unknown_option(const engine_address& address, const std::string& name) {
  return engine_error(address.shown() + ": the URL takes no " + in_quotes(name));
}

engine_address engine_address_of(const std::string& url, uint16_t port) {
  engine_address address;
  std::string_view rest = url;
  address.scheme = address_part(rest, "://");
  address.port = port;
  std::string_view before_query = address_part(rest, "?");
  const size_t path = std::min(before_query.find('/'), before_query.size());
  address.path = before_query.substr(path);
  std::string_view place = before_query.substr(0, path);
  if (const size_t at = place.rfind('@'); at != std::string_view::npos) {
    read_user(place.substr(0, at), address);
    place.remove_prefix(at + 1);
  }
  read_host(place, address);
  check_path(address);
  address.options = address_parameters(rest);
  return address;
}
