// Where the lines of a chart's axes are, and what they are called.
#ifndef TOOLS_COUNTS_AXIS_H
#define TOOLS_COUNTS_AXIS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct axis_mark {
  double position = 0;  // a count, or days since 1970-01-01
  std::string label;
};

// Marks at round counts, at most about `most` of them, from 0 to the first that is not below
// `largest`: "0", "500", "20k", "3M".
std::vector<axis_mark> count_marks(uint64_t largest, size_t most);

// Marks at days, at the first days of months, or of years, whatever gives at most `most` of them
// from `first` to the day before `end`: "2026-11-15", "2026-11", "2026".
std::vector<axis_mark> day_marks(std::chrono::sys_days first, std::chrono::sys_days end,
                                 size_t most);
// The same without marks within months.
std::vector<axis_mark> month_marks(std::chrono::sys_days first, std::chrono::sys_days end,
                                   size_t most);

#endif
