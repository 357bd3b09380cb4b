#include "tools/counter_report.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "tools/terminal_text.h"

static counter_day start_of(const counter_day& day, report_period period) {
  switch (period) {
    case report_period::none:
      return {};
    case report_period::month:
      return {day.year, day.month, 0};
    case report_period::day:
      break;
  }
  return day;
}

std::string counter_report::period_text(const counter_day& start) const {
  const std::string text = day_text(start);
  return grouping.period == report_period::month ? text.substr(0, text.rfind('-')) : text;
}

const std::string* counter_report::name_of(uint32_t id) const {
  const auto known = names.find(id);
  return known == names.end() ? nullptr : &known->second;
}

std::string counter_report::event_text(uint32_t id) const {
  const std::string* const name = name_of(id);
  return name == nullptr ? std::to_string(id) : terminal_text(*name);
}

static void count_days_and_events(const std::vector<counted_entries>& counts,
                                  const day_range& range, counter_report& report) {
  std::set<counter_day> days;
  std::set<uint32_t> events;
  for (const counted_entries& entries : counts) {
    if (entries.count == 0 || !range.holds(entries.day)) continue;
    days.insert(entries.day);
    events.insert(entries.id);
  }
  report.days = days.size();
  report.events = events.size();
}

void add_up(const std::vector<counted_entries>& counts, const day_range& range,
            counter_report& report) {
  std::map<std::tuple<counter_day, uint32_t>, uint64_t> sums;
  for (const counted_entries& entries : counts) {
    if (!range.holds(entries.day)) continue;
    sums[{start_of(entries.day, report.grouping.period),
          report.grouping.by_event ? entries.id : 0}] += entries.count;
    report.total += entries.count;
  }
  for (const auto& [key, count] : sums)
    report.rows.push_back({std::get<counter_day>(key), std::get<uint32_t>(key), count});
  if (report.grouping.period == report_period::none)
    std::stable_sort(report.rows.begin(), report.rows.end(),
                     [](const report_row& a, const report_row& b) { return a.count > b.count; });
  count_days_and_events(counts, range, report);
}
