// What is kept of a segment's records beside them, by which those of a question are found.
#ifndef ENGINES_POSTGRESQL_BATCH_FACTS_H
#define ENGINES_POSTGRESQL_BATCH_FACTS_H

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "tools/ship/shipped_record.h"

// Stands for an event that no definitions know.
inline constexpr int64_t pg_unknown_event = -1;

struct batch_facts {
  std::set<int64_t> events;
  std::optional<int64_t> earliest = {};  // seconds since 1970
  std::optional<int64_t> latest = {};
  bool has_timeless = false;
};

batch_facts facts_of(std::span<const shipped_record> records);

#endif
