// A report on counts as text: for people, and for programs.
#ifndef TOOLS_COUNTS_TABLE_H
#define TOOLS_COUNTS_TABLE_H

#include <cstddef>
#include <string>

#include "tools/counts/report.h"

// A line for each row; with bars behind, where `width`, the cells of a line, leaves room for them.
// 0: no bars.
std::string counter_table(const counter_report& report, size_t width);

// One object: what was asked for, the total, and an object for each row.
std::string counter_json(const counter_report& report, const day_range& range);

// RFC 4180, with a line of headings. Names come escaped for a terminal.
std::string counter_csv(const counter_report& report);

#endif
