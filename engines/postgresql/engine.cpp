#include "engines/postgresql/engine.h"

const engine_row postgresql_engine = {.scheme = "postgresql"};
