#include "tools/ship/reconcile.h"

#include "recording/records/lost.h"

static uint64_t count_in(const day_counts& counts, const day_event& key) {
  const auto found = counts.find(key);
  return found == counts.end() ? 0 : found->second;
}

static std::set<day_event> all_keys(const told_counts& told) {
  std::set<day_event> keys;
  for (const auto& [key, count] : told.engine) keys.insert(key);
  for (const auto& [key, count] : told.journal) keys.insert(key);
  if (told.counters)
    for (const auto& [key, count] : *told.counters) keys.insert(key);
  return keys;
}

std::vector<count_difference> differences_of(const told_counts& told) {
  std::vector<count_difference> differences;
  for (const day_event& key : all_keys(told)) {
    count_difference one{.key = key, .engine = count_in(told.engine, key)};
    const uint64_t journal = count_in(told.journal, key);
    if (told.whole_days.contains(key.day) || journal > one.engine) one.journal = journal;
    const bool is_counted = told.counters && key.event != lost_event().id;
    if (is_counted) one.counted = count_in(*told.counters, key);
    if (one.journal.value_or(one.engine) != one.engine ||
        one.counted.value_or(one.engine) != one.engine)
      differences.push_back(one);
  }
  return differences;
}

std::string text_of(const count_difference& difference) {
  std::string text;
  if (difference.counted) text += std::to_string(*difference.counted) + " counted, ";
  if (difference.journal) text += std::to_string(*difference.journal) + " in the journal, ";
  return text + std::to_string(difference.engine) + " in the engine";
}
