#include "tools/counts/report.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <tuple>
#include <utility>

#include "recording/text/escape.h"
#include "recording/text/words.h"
#include "tools/chart/bars.h"

// --- Adding up

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

// --- What the forms share

static const char* period_name(report_period period) {
  return period == report_period::month ? "month" : "day";
}

// --- The table

static text_row table_headings(const counter_report& report) {
  text_row headings;
  if (report.grouping.period != report_period::none)
    headings.emplace_back(report.grouping.period == report_period::day ? "DAY" : "MONTH");
  if (report.grouping.by_event) headings.emplace_back("EVENT");
  return headings;
}

static text_row table_cells(const counter_report& report, const report_row& row) {
  text_row cells;
  if (report.grouping.period != report_period::none) cells.push_back(report.period_text(row.start));
  if (report.grouping.by_event) cells.push_back(report.event_text(row.id));
  return cells;
}

std::string counter_table(const counter_report& report, size_t width) {
  std::vector<counted_row> rows;
  for (const report_row& row : report.rows) rows.push_back({table_cells(report, row), row.count});
  return bar_table(table_headings(report), rows, width);
}

// --- JSON

using json_value = nlohmann::ordered_json;

static json_value json_end(const std::optional<counter_day>& end) {
  return end ? json_value(day_text(*end)) : json_value();
}

static json_value json_row(const counter_report& report, const report_row& row) {
  json_value object;
  if (report.grouping.period != report_period::none)
    object[period_name(report.grouping.period)] = report.period_text(row.start);
  if (report.grouping.by_event) {
    object["event"] = row.id;
    if (const std::string* const name = report.name_of(row.id)) object["name"] = *name;
  }
  object["count"] = row.count;
  return object;
}

std::string counter_json(const counter_report& report, const day_range& range) {
  json_value object = {{"from", json_end(range.from)},
                       {"to", json_end(range.to)},
                       {"total", report.total},
                       {"rows", json_value::array()}};
  for (const report_row& row : report.rows) object["rows"].push_back(json_row(report, row));
  return object.dump(2, ' ', true, json_value::error_handler_t::replace) + '\n';
}

// --- CSV

static text_row csv_headings(const counter_report& report) {
  text_row headings;
  if (report.grouping.period != report_period::none)
    headings.emplace_back(period_name(report.grouping.period));
  if (report.grouping.by_event) headings.emplace_back("event");
  if (report.grouping.by_event && report.has_names) headings.emplace_back("name");
  headings.emplace_back("count");
  return headings;
}

static text_row csv_fields(const counter_report& report, const report_row& row) {
  text_row fields;
  if (report.grouping.period != report_period::none)
    fields.push_back(report.period_text(row.start));
  if (report.grouping.by_event) fields.push_back(std::to_string(row.id));
  if (report.grouping.by_event && report.has_names) {
    const std::string* const name = report.name_of(row.id);
    fields.push_back(name == nullptr ? "" : terminal_text(*name));
  }
  fields.push_back(std::to_string(row.count));
  return fields;
}

std::string counter_csv(const counter_report& report) {
  std::string csv = csv_line(csv_headings(report));
  for (const report_row& row : report.rows) csv += csv_line(csv_fields(report, row));
  return csv;
}
