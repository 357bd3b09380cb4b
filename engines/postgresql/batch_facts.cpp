#include "engines/postgresql/batch_facts.h"

#include <algorithm>

batch_facts facts_of(std::span<const shipped_record> records) {
  batch_facts facts;
  for (const shipped_record& record : records) {
    facts.events.insert(record.event ? int64_t{*record.event} : pg_unknown_event);
    if (!record.time) {
      facts.has_timeless = true;
      continue;
    }
    facts.earliest = std::min(facts.earliest.value_or(*record.time), *record.time);
    facts.latest = std::max(facts.latest.value_or(*record.time), *record.time);
  }
  return facts;
}
