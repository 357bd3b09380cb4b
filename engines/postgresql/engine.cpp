#include "engines/postgresql/engine.h"

#include "engines/postgresql/schema.h"
#include "engines/postgresql/sender.h"

static std::unique_ptr<ship_engine> open_pg_sender(const engine_options& options) {
  return std::make_unique<pg_sender>(options);
}

const engine_row postgresql_engine = {
    .scheme = "postgresql", .open = open_pg_sender, .schema = pg_schema, .create = pg_create};
