#include "engines/postgresql/address.h"

#include <libpq-fe.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>

#include "base/kp_clib.h"
#include "engines/common/address.h"
#include "recording/text/number.h"
#include "recording/text/words.h"

// What the address says itself; libpq's own defaults are not among it.
static pg_parameter_map pg_address_parts(const std::string& address) {
  char* fault = nullptr;
  const std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)> parts(
      PQconninfoParse(address.c_str(), &fault), PQconninfoFree);
  const std::unique_ptr<char, decltype(&PQfreemem)> text(fault, PQfreemem);
  // What libpq says of it may repeat a part of it, which may be a password.
  if (!parts)
    throw engine_error("the address of the database is none: " +
                       std::string("postgresql://USER@HOST:PORT/DATABASE"));
  pg_parameter_map values;
  for (const PQconninfoOption* part = parts.get(); part->keyword != nullptr; ++part)
    if (part->val != nullptr) values[part->keyword] = part->val;
  return values;
}

static pg_parameter_map pg_password_free_parts(const std::string& address) {
  pg_parameter_map values = pg_address_parts(address);
  if (values.contains("password") || values.contains("sslpassword"))
    throw engine_error("an address holds no password: --password-file does");
  return values;
}

static const std::string pg_system_authorities = "/etc/ssl/certs/ca-certificates.crt";

static pg_parameter_map pg_parameters(const engine_options& options) {
  pg_parameter_map values = pg_password_free_parts(options.address);
  // Only those that the address does not have.
  values.insert({"sslmode", "verify-full"});
  values.insert({"application_name", "kplog-ship"});
  values.insert({"connect_timeout", "10"});
  values.insert({"keepalives_idle", "10"});
  values.insert({"keepalives_interval", "5"});
  values.insert({"keepalives_count", "3"});
  values.insert({"tcp_user_timeout", "30000"});
  if (!options.tls_ca.empty())
    values["sslrootcert"] = options.tls_ca;
  else if (KP_access(pg_system_authorities.c_str(), R_OK) == 0)
    values.insert({"sslrootcert", pg_system_authorities});
  if (!options.user.empty()) values["user"] = options.user;
  if (options.password) values["password"] = *options.password;
  values["client_encoding"] = "UTF8";
  return values;
}

static std::vector<std::string> pg_parts(const std::string& list) {
  std::vector<std::string> parts(1);
  for (const char character : list) {
    if (character == ',')
      parts.emplace_back();
    else
      parts.back() += character;
  }
  return parts;
}

// One by one, since libpq does not go on to the next of several when one does not answer at all,
// unless it may wait itself.
std::vector<pg_parameter_map> pg_servers(const engine_options& options, bool is_written) {
  pg_parameter_map values = pg_parameters(options);
  const std::vector<std::string> hosts = pg_parts(values["host"]);
  const std::vector<std::string> ports = pg_parts(values["port"]);
  const std::vector<std::string> addresses = pg_parts(values["hostaddr"]);
  if (is_written && hosts.size() > 1) values.insert({"target_session_attrs", "read-write"});
  std::vector<pg_parameter_map> servers;
  for (size_t i = 0; i < hosts.size(); ++i) {
    values["host"] = hosts[i];
    values["port"] = ports[ports.size() == hosts.size() ? i : 0];
    values["hostaddr"] = addresses.size() == hosts.size() ? addresses[i] : "";
    servers.push_back(values);
  }
  return servers;
}

// --- What an address may say ---

// What libpq calls its parameters, but for passwords.
static std::vector<std::string> pg_known_parameters() {
  const std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)> all(PQconndefaults(),
                                                                         PQconninfoFree);
  if (!all) throw std::bad_alloc();
  std::vector<std::string> names = {"ssl"};  // ssl=true, as others write it
  for (const PQconninfoOption* one = all.get(); one->keyword != nullptr; ++one)
    if (!std::string_view(one->keyword).ends_with("password")) names.emplace_back(one->keyword);
  return names;
}

// libpq would say of one that it does not know that the address is none.
static void check_pg_parameter_names(const std::string& address) {
  const std::vector<std::string> names = pg_known_parameters();
  const std::vector<std::string_view> known(names.begin(), names.end());
  const size_t query = address.find('?');
  if (query == std::string::npos) return;
  for (const auto& [name, value] : address_parameters(std::string_view(address).substr(query + 1)))
    if (!name.ends_with("password") && std::ranges::find(known, name) == known.end())
      throw engine_error(address + ": " + in_quotes(shortened(name)) +
                         " is no parameter of a PostgreSQL address" +
                         nearest_name_hint(name, known));
}

// Values that are wrong come to light only when it is connected, again and again.
static void check_pg_word(const std::string& address, const pg_parameter_map& values,
                          const std::string& name, const std::vector<std::string_view>& words) {
  const auto found = values.find(name);
  if (found == values.end() || std::ranges::find(words, found->second) != words.end()) return;
  std::string all;
  for (const std::string_view word : words) all += (all.empty() ? "" : ", ") + std::string(word);
  throw engine_error(address + ": " + name + " has one of the values " + all + ", not " +
                     in_quotes(shortened(found->second)));
}

void check_pg_address(const std::string& address) {
  check_pg_parameter_names(address);
  pg_parameter_map values = pg_password_free_parts(address);
  check_pg_word(address, values, "sslmode",
                {"disable", "allow", "prefer", "require", "verify-ca", "verify-full"});
  check_pg_word(address, values, "target_session_attrs",
                {"any", "read-write", "read-only", "primary", "standby", "prefer-standby"});
  for (const std::string& port : pg_parts(values["port"])) {
    const auto number = number_of<uint16_t>(port);
    if (!port.empty() && (!number || *number == 0))
      throw engine_error(address + ": " + in_quotes(shortened(port)) +
                         " is no port, which is a number from 1 to 65535");
  }
}
