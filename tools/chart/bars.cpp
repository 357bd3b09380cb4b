#include "tools/chart/bars.h"

#include <algorithm>
#include <cmath>

#include "recording/text/escape.h"

// --- The table

static constexpr size_t smallest_bar_width =
    8;  // cells of the longest bar; below it there are none

// A bar of whole cells and one of eighths; whatever is above 0 shows.
static std::string bar(uint64_t count, uint64_t largest, size_t width) {
  if (count == 0) return "";
  const double share = static_cast<double>(count) / static_cast<double>(largest);
  const size_t eighths =
      std::max(size_t{1}, static_cast<size_t>(std::lround(share * static_cast<double>(width * 8))));
  std::string cells;
  for (size_t i = 0; i < eighths / 8; ++i) cells += "\u2588";
  static constexpr const char* parts[] = {"",       "\u258F", "\u258E", "\u258D",
                                          "\u258C", "\u258B", "\u258A", "\u2589"};
  return cells + parts[eighths % 8];
}

static uint64_t largest_count(const std::vector<counted_row>& rows) {
  uint64_t largest = 0;
  for (const counted_row& row : rows) largest = std::max(largest, row.count);
  return largest;
}

std::string bar_table(text_row headings, const std::vector<counted_row>& rows, size_t width) {
  const std::set<size_t> right_aligned = {headings.size()};
  headings.emplace_back("ENTRIES");
  std::vector<text_row> lines = {std::move(headings)};
  for (const counted_row& row : rows) {
    lines.push_back(row.cells);
    lines.back().push_back(std::to_string(row.count));
  }
  std::string table = in_columns(lines, right_aligned);
  const size_t used = terminal_width(std::string_view(table).substr(0, table.find('\n'))) + 2;
  if (width < used + smallest_bar_width) return table;
  const uint64_t largest = largest_count(rows);
  lines.front().emplace_back();
  for (size_t i = 0; i < rows.size(); ++i)
    lines[i + 1].push_back(bar(rows[i].count, largest, width - used));
  return in_columns(lines, right_aligned);
}

// --- CSV

static std::string csv_field(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char character : text) {
    if (character == '"') quoted += '"';
    quoted += character;
  }
  return quoted + '"';
}

std::string csv_line(const text_row& fields) {
  std::string line;
  const char* separator = "";
  for (const std::string& field : fields) {
    line += separator + csv_field(field);
    separator = ",";
  }
  return line + "\r\n";
}

// --- The picture

static constexpr double bar_pitch = 28;  // from one bar to the next
static constexpr double bar_height = 18;
static constexpr size_t label_cells = 34;  // of names beside their bars

struct bar_plot {
  double left = 0;
  double right = 0;
  double bottom = 0;
  std::vector<axis_mark> marks;
};

static void draw_bar_axis(svg_writer& svg, const bar_plot& plot) {
  for (const axis_mark& mark : plot.marks) {
    const double x =
        plot.left + mark.position / plot.marks.back().position * (plot.right - plot.left);
    svg.line(mark.position == 0 ? "axis" : "grid", x, plot_top, x, plot.bottom);
    svg.text("center", x, plot.bottom + 18, mark.label);
  }
}

static bar_plot plot_of(const std::vector<chart_bar>& bars) {
  bar_plot plot;
  uint64_t largest = 0;
  double widest = 0;
  for (const chart_bar& one : bars) {
    largest = std::max(largest, one.count);
    widest = std::max(widest, label_width(shortened_label(one.name, label_cells)));
  }
  plot.left = margin + widest + 10;
  plot.right = chart_width - margin - label_width(std::to_string(largest)) - 8;
  plot.bottom = plot_top + static_cast<double>(std::max(bars.size(), size_t{1})) * bar_pitch;
  if (!bars.empty()) plot.marks = count_marks(largest, 6);
  return plot;
}

static void draw_bar(svg_writer& svg, const bar_plot& plot, const chart_bar& one, double top) {
  const double share = static_cast<double>(one.count) / plot.marks.back().position;
  const double width = one.count == 0 ? 0 : std::max(1.0, share * (plot.right - plot.left));
  const double base = top + bar_height / 2 + label_drop;
  svg.text("name", plot.left - 10, base, shortened_label(one.name, label_cells));
  svg.rectangle("s0", {plot.left, top, width, bar_height},
                one.name + ": " + entries_text(one.count));
  svg.text("value", plot.left + width + 8, base, std::to_string(one.count));
}

std::string bar_chart(const chart_words& words, const std::vector<chart_bar>& bars) {
  const bar_plot plot = plot_of(bars);
  svg_writer svg = begin_chart(words, plot.bottom + 40);
  if (bars.empty()) {
    svg.text("center", chart_width / 2, plot_top + bar_height, no_entries);
    return svg.finished();
  }
  draw_bar_axis(svg, plot);
  double top = plot_top + (bar_pitch - bar_height) / 2;
  for (const chart_bar& one : bars) {
    draw_bar(svg, plot, one, top);
    top += bar_pitch;
  }
  return svg.finished();
}
