// What a database holds for kplog (docs/shipping-schema.md).
#ifndef ENGINES_POSTGRESQL_SCHEMA_H
#define ENGINES_POSTGRESQL_SCHEMA_H

#include <string>

#include "tools/ship/engine.h"

inline constexpr int pg_schema_version = 1;

// As SQL in one transaction, which changes nothing where that version is there already, but for
// whether indexes over attributes are made live.
std::string pg_schema(const engine_options& options);

// Runs it. Raises engine_error.
void pg_create(const engine_options& options);

#endif
