#include "engines/postgresql/engine.h"

#include "engines/postgresql/address.h"
#include "engines/postgresql/archive.h"
#include "engines/postgresql/fleet.h"
#include "engines/postgresql/schema.h"
#include "engines/postgresql/sender.h"

static std::unique_ptr<ship_engine> open_pg_sender(const engine_options& options) {
  return std::make_unique<pg_sender>(options);
}

static std::unique_ptr<record_archive> ask_pg_archive(const engine_options& options,
                                                      const archive_query& query) {
  return std::make_unique<pg_archive>(options, query);
}

static std::unique_ptr<fleet_view> view_pg_fleet(const engine_options& options) {
  return std::make_unique<pg_fleet>(options);
}

const engine_row postgresql_engine = {.scheme = "postgresql",
                                      .check = check_pg_address,
                                      .open = open_pg_sender,
                                      .ask = ask_pg_archive,
                                      .view = view_pg_fleet,
                                      .schema = pg_schema,
                                      .create = pg_create};
