#include "history_keeping.h"

#include <algorithm>
#include <utility>

#include "history_entry.h"

static void keep(const history_event& event, history_text_logs& logs, history_counter& counter) {
  logs.append(event.day, kp_LOG_RenderMessage(*event.entry));
  try {
    counter.count(event.day, history_entry_id(event.kind));
  } catch (...) {
    logs.take_back();
    throw;
  }
}

history_tally keep_accepted_events(const package_history& history,
                                   const _kp_LOG_entry_filter& filter, history_text_logs& logs,
                                   history_counter& counter) {
  history_tally accepted{};
  for (const history_event& event : history.events) {
    if (!filter.check_entry(*event.entry)) continue;
    keep(event, logs, counter);
    ++accepted[static_cast<size_t>(event.kind)];
  }
  return accepted;
}

uintmax_t history_kept_day::n_counted() const {
  uintmax_t sum = 0;
  for (const auto& [entry_id, count] : counts) sum += count;
  return sum;
}

history_kept read_kept_history(const std::string& folder) {
  history_kept kept;
  for (auto& [day, logs] : read_text_logs(folder)) kept[day].logs = std::move(logs);
  for (auto& [day, counts] : read_history_counts(folder)) kept[day].counts = std::move(counts);
  return kept;
}

bool is_balanced(const history_kept& kept) {
  return std::all_of(kept.begin(), kept.end(), [](const auto& day) {
    return day.second.logs.n_lines == day.second.n_counted();
  });
}
