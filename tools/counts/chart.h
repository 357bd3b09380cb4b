// A report on counts as a picture.
#ifndef TOOLS_COUNTS_CHART_H
#define TOOLS_COUNTS_CHART_H

#include <string>

#include "tools/counts/report.h"

// An SVG image that stands alone, or inside a page: columns over time for days and months, stacked
// when events have rows of their own; a bar for each event without a period. It follows the
// reader's choice of light and dark, and says in its title and description what it shows. Days that
// no calendar has cannot stand on an axis; how many entries they have is said below the chart.
std::string counter_chart(const counter_report& report);

#endif
