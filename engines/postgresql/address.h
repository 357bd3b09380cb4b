// Where a database is, as its URL and the options say it: what libpq is given.
#ifndef ENGINES_POSTGRESQL_ADDRESS_H
#define ENGINES_POSTGRESQL_ADDRESS_H

#include <map>
#include <string>
#include <vector>

#include "tools/ship/engine.h"

// Names of parameters of libpq, and their values.
using pg_parameter_map = std::map<std::string, std::string>;

// Those of each server that the address names, in its order. A server is verified by its name and
// certificate (sslmode=verify-full) unless the address says otherwise. Where there are several, one
// that only reads is passed over, unless the address says otherwise or nothing `is_written`. Raises
// engine_error for an address that is none, and for one that holds a password.
std::vector<pg_parameter_map> pg_servers(const engine_options& options, bool is_written);

// Raises engine_error for parameters that libpq does not have, or not with that value, and for what
// pg_servers raises it.
void check_pg_address(const std::string& address);

#endif
