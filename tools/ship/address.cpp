#include "tools/ship/address.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "recording/text/number.h"

static constexpr std::string_view scheme_end = "://";

std::string_view scheme_of(std::string_view address) {
  const size_t end = address.find(scheme_end);
  return end == std::string_view::npos ? "" : address.substr(0, end);
}

bool is_engine_address(std::string_view text) {
  const std::string_view scheme = scheme_of(text);
  return !scheme.empty() && std::ranges::all_of(scheme, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+';
  });
}

// With %NN as the characters that they are, in lower case.
static std::string decoded_key(std::string_view key) {
  std::string text;
  for (size_t at = 0; at < key.size(); ++at) {
    const auto code = key[at] == '%' ? number_of<uint8_t>(key.substr(at + 1, 2), 16) : std::nullopt;
    const char c = code ? static_cast<char>(*code) : key[at];
    if (code) at += 2;
    text += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return text;
}

static bool has_password_parameter(std::string_view query) {
  while (!query.empty()) {
    const std::string_view parameter = query.substr(0, query.find('&'));
    const std::string key = decoded_key(parameter.substr(0, parameter.find('=')));
    if (key.find("password") != std::string::npos || key == "token") return true;
    query.remove_prefix(std::min(parameter.size() + 1, query.size()));
  }
  return false;
}

void refuse_password(std::string_view address) {
  const size_t query = address.find('?');
  const std::string_view place = address.substr(0, query);
  const size_t scheme = scheme_of(address).size();
  const size_t begin = scheme == 0 ? 0 : scheme + scheme_end.size();
  // Of several hosts each may have its user: "a@one:4222,b@two:4222". A password may hold anything,
  // so that a host's port before another user counts as one, too.
  const std::string_view hosts = place.substr(begin);
  const std::string_view users = hosts.substr(0, hosts.rfind('@') + 1);
  const size_t colon = users.find(':');
  if (colon != std::string_view::npos && users.find('@') < colon)
    throw std::invalid_argument(
        "the address has a second user, or holds a password: one user stands before all hosts, and "
        "--password-file takes a password from a file");
  const bool has_password =
      colon != std::string_view::npos ||
      (query != std::string_view::npos && has_password_parameter(address.substr(query + 1)));
  if (has_password)
    throw std::invalid_argument(
        "the address holds a password, which others may read in the command line; "
        "--password-file takes it from a file");
}
