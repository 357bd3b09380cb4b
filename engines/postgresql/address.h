// Where a database is, as its URL and the options say it: what libpq is given.
#ifndef ENGINES_POSTGRESQL_ADDRESS_H
#define ENGINES_POSTGRESQL_ADDRESS_H

#include <map>
#include <string>

#include "tools/ship/engine.h"

// Names of parameters of libpq, and their values. The server is verified by its name and
// certificate (sslmode=verify-full) unless the address says otherwise, and so is every one of
// several. Raises engine_error for an address that is none, and for one that holds a password.
std::map<std::string, std::string> pg_parameters(const engine_options& options);

#endif
