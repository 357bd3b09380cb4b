#include "engines/postgresql/address.h"

#include <libpq-fe.h>
#include <unistd.h>

#include <memory>

#include "base/kp_clib.h"
#include "engines/postgresql/error_text.h"

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

static const std::string pg_system_authorities = "/etc/ssl/certs/ca-certificates.crt";

static pg_parameter_map pg_parameters(const engine_options& options) {
  pg_parameter_map values = pg_address_parts(options.address);
  if (values.contains("password") || values.contains("sslpassword"))
    throw engine_error("an address holds no password: --password-file does");
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
