// PostgreSQL, and whatever speaks its protocol (docs/shipping.md).
#ifndef ENGINES_POSTGRESQL_ENGINE_H
#define ENGINES_POSTGRESQL_ENGINE_H

#include "tools/ship/engine.h"

extern const engine_row postgresql_engine;

#endif
