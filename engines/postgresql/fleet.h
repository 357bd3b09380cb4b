// What a database has of a fleet.
#ifndef ENGINES_POSTGRESQL_FLEET_H
#define ENGINES_POSTGRESQL_FLEET_H

#include <string>
#include <vector>

#include "engines/postgresql/connection.h"
#include "tools/ship/engine.h"

// Events that no definitions know count as event 0.
class pg_fleet : public fleet_view {
 public:
  explicit pg_fleet(const engine_options& options) : connection_(options, true, pg_needs_read) {}

  day_counts counts(const journal_identity& journal, const std::string& since_day) override;
  std::vector<fleet_row> rows() override;
  std::vector<std::string> prune(const std::string& before_day) override;

 private:
  void finish_days();

  pg_connection connection_;
};

#endif
