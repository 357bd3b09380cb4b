#include "engines/postgresql/address.h"

#include <libpq-fe.h>
#include <unistd.h>

#include <memory>

#include "engines/postgresql/error_text.h"

// What the address says itself; libpq's own defaults are not among it.
static std::map<std::string, std::string> pg_address_parts(const std::string& address) {
  char* fault = nullptr;
  const std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)> parts(
      PQconninfoParse(address.c_str(), &fault), PQconninfoFree);
  const std::unique_ptr<char, decltype(&PQfreemem)> text(fault, PQfreemem);
  // What libpq says of it may repeat a part of it, which may be a password.
  if (!parts)
    throw engine_error("the address of the database is none: " +
                       std::string("postgresql://USER@HOST:PORT/DATABASE"));
  std::map<std::string, std::string> values;
  for (const PQconninfoOption* part = parts.get(); part->keyword != nullptr; ++part)
    if (part->val != nullptr) values[part->keyword] = part->val;
  return values;
}

static const std::string system_authorities = "/etc/ssl/certs/ca-certificates.crt";

std::map<std::string, std::string> pg_parameters(const engine_options& options) {
  std::map<std::string, std::string> values = pg_address_parts(options.address);
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
  else if (access(system_authorities.c_str(), R_OK) == 0)
    values.insert({"sslrootcert", system_authorities});
  if (!options.user.empty()) values["user"] = options.user;
  if (options.password) values["password"] = *options.password;
  values["client_encoding"] = "UTF8";
  return values;
}
