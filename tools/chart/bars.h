// Counts as bars: behind the lines of a table, and as a picture.
#ifndef TOOLS_CHART_BARS_H
#define TOOLS_CHART_BARS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "recording/text/words.h"
#include "tools/chart/chart_page.h"

struct counted_row {
  text_row cells;  // before the count; escaped for a terminal
  uint64_t count = 0;
};

// A line for each row, its count under "ENTRIES"; with bars behind, where `width`, the cells of a
// line, leaves room for them. 0: no bars.
std::string bar_table(text_row headings, const std::vector<counted_row>& rows, size_t width);

// A line of RFC 4180.
std::string csv_line(const text_row& fields);

struct chart_bar {
  std::string name;  // escaped for a terminal
  uint64_t count = 0;
};

// An SVG image with the bars from the top down.
std::string bar_chart(const chart_words& words, const std::vector<chart_bar>& bars);

#endif
