// The counts of counter files, added up as a report shows them, and the report as text.
#ifndef TOOLS_COUNTS_REPORT_H
#define TOOLS_COUNTS_REPORT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "recording/sinks/counter_record.h"

enum class report_period { none, day, month };

// What has a row of its own.
struct report_grouping {
  report_period period = report_period::day;
  bool by_event = true;
};

struct report_row {
  counter_day start;  // of the period; of a month, its day is 0; all 0 without a period
  uint32_t id = 0;    // 0 when events have no rows of their own
  uint64_t count = 0;
};

struct counter_report {
  report_grouping grouping;
  std::vector<report_row> rows;  // by period, then by ID; of events alone, the most frequent first
  uint64_t total = 0;
  size_t days = 0;                                  // with a count above 0
  size_t events = 0;                                // of which some day has a count above 0
  std::unordered_map<uint32_t, std::string> names;  // of events
  bool has_names = false;                           // definitions are known

  // "2026-11-15" or "2026-11".
  std::string period_text(const counter_day& start) const;
  // The name, null when it is not known.
  const std::string* name_of(uint32_t id) const;
  // The name or the ID; escaped for a terminal.
  std::string event_text(uint32_t id) const;
};

// The days that a report is about; both ends belong to it.
struct day_range {
  std::optional<counter_day> from;
  std::optional<counter_day> to;

  bool holds(const counter_day& day) const {
    return (!from || *from <= day) && (!to || day <= *to);
  }
};

// Adds up the rows of `counts`, which may hold a key several times.
void add_up(const std::vector<counted_entries>& counts, const day_range& range,
            counter_report& report);

// --- As text: for people, and for programs

// A line for each row; with bars behind, where `width`, the cells of a line, leaves room for them.
// 0: no bars.
std::string counter_table(const counter_report& report, size_t width);

// One object: what was asked for, the total, and an object for each row.
std::string counter_json(const counter_report& report, const day_range& range);

// RFC 4180, with a line of headings. Names come escaped for a terminal.
std::string counter_csv(const counter_report& report);

#endif
