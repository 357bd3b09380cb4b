#include "tools/counts/report.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "recording/text/terminal_text.h"

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

template <class Value>
static size_t distinct(std::vector<Value> values) {
  std::sort(values.begin(), values.end());
  return static_cast<size_t>(std::unique(values.begin(), values.end()) - values.begin());
}

static void count_days_and_events(const std::vector<counted_entries>& counts,
                                  const day_range& range, counter_report& report) {
  std::vector<counter_day> days;
  std::vector<uint32_t> events;
  for (const counted_entries& entries : counts) {
    if (entries.count == 0 || !range.holds(entries.day)) continue;
    days.push_back(entries.day);
    events.push_back(entries.id);
  }
  report.days = distinct(std::move(days));
  report.events = distinct(std::move(events));
}

static auto key_of(const report_row& row) {
  return std::tie(row.start, row.id);
}

// Leaves one row for each key, in the order of the keys.
static void merge_rows(std::vector<report_row>& rows) {
  std::sort(rows.begin(), rows.end(),
            [](const report_row& a, const report_row& b) { return key_of(a) < key_of(b); });
  size_t kept = 0;
  for (const report_row& row : rows) {
    if (kept != 0 && key_of(rows[kept - 1]) == key_of(row))
      rows[kept - 1].count += row.count;
    else
      rows[kept++] = row;
  }
  rows.resize(kept);
}

void add_up(const std::vector<counted_entries>& counts, const day_range& range,
            counter_report& report) {
  for (const counted_entries& entries : counts) {
    if (!range.holds(entries.day)) continue;
    report.rows.push_back({start_of(entries.day, report.grouping.period),
                           report.grouping.by_event ? entries.id : 0, entries.count});
    report.total += entries.count;
  }
  merge_rows(report.rows);
  if (report.grouping.period == report_period::none)
    std::stable_sort(report.rows.begin(), report.rows.end(),
                     [](const report_row& a, const report_row& b) { return a.count > b.count; });
  count_days_and_events(counts, range, report);
}
