#include "tools/counts/chart.h"

#include <algorithm>
#include <chrono>
#include <map>

#include "recording/text/escape.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"
#include "tools/counts/chart_parts.h"

using std::chrono::sys_days;

// Lengths are in pixels of an image that nobody scales.
static constexpr double chart_width = 960;
static constexpr double margin = 24;
static constexpr double plot_top = 88;
static constexpr double cell_width = 8.5;  // of a wide capital letter, about
static constexpr double label_drop = 4;    // from the middle of a line of text to its base
static constexpr double timeline_height = 420;
static constexpr double timeline_bottom = 368;  // of the plot
static constexpr double widest_column = 72;
static constexpr double legend_width = 220;
static constexpr double bar_pitch = 28;  // from one bar to the next
static constexpr double bar_height = 18;
static constexpr size_t label_cells = 34;   // of events beside their bars
static constexpr size_t legend_cells = 20;  // of events in the legend
static constexpr size_t series_limit = 6;   // events with a color of their own

// The colors stay apart for people who see few of them.
static constexpr std::string_view chart_style = R"(
text { font: 12px system-ui, "Segoe UI", "DejaVu Sans", sans-serif; fill: #59636e; }
text.title { font-size: 18px; font-weight: 600; fill: #1f2328; }
text.value, text.name { fill: #1f2328; }
text.center { text-anchor: middle; }
text.right, text.name { text-anchor: end; }
.paper { fill: #ffffff; }
.grid { stroke: #d8dee4; }
.axis { stroke: #8c959f; }
.s0 { fill: #0072b2; }
.s1 { fill: #e69f00; }
.s2 { fill: #009e73; }
.s3 { fill: #cc79a7; }
.s4 { fill: #56b4e9; }
.s5 { fill: #d55e00; }
.s6 { fill: #9aa0a6; }
@media (prefers-color-scheme: dark) {
text { fill: #9da7b3; }
text.title, text.value, text.name { fill: #e6edf3; }
.paper { fill: #0d1117; }
.grid { stroke: #2b323b; }
.axis { stroke: #6e7681; }
.s0 { fill: #2f8fd0; }
.s4 { fill: #8fd0f5; }
}
)";

static constexpr const char* no_entries = "No entries";

// A day or month with entries, its place on the axis, and its counts by series.
struct chart_period {
  std::string name;
  sys_days begin;
  sys_days end;
  std::vector<uint64_t> counts;
  uint64_t total = 0;
};

struct chart_timeline {
  std::vector<uint32_t> series;  // IDs of events, the most frequent first; others come behind
  size_t others = 0;             // events without a series of their own
  std::vector<chart_period> periods;
  uint64_t largest = 0;   // total of a period
  uint64_t unplaced = 0;  // entries of days that no calendar has
};

// The part of the image where values are shown.
struct chart_plot {
  double left = 0;
  double right = chart_width - margin;
  double bottom = timeline_bottom;
};

// At most `cells` of a text that is escaped for a terminal.
static std::string shortened(const std::string& text, size_t cells) {
  if (terminal_width(text) <= cells) return text;
  std::string kept;
  for (const utf8_character& character : utf8(text)) {
    const std::string longer = kept + std::string(character.bytes);
    if (terminal_width(longer) >= cells) break;
    kept = longer;
  }
  return kept + "\u2026";
}

static double text_width(const std::string& text) {
  return static_cast<double>(terminal_width(text)) * cell_width;
}

static std::string entries_text(uint64_t count) {
  return std::to_string(count) + (count == 1 ? " entry" : " entries");
}

// --- What is said in words

static std::string chart_title(const counter_report& report) {
  static constexpr const char* titles[] = {"Log entries", "Log entries per day",
                                           "Log entries per month"};
  std::string title = titles[static_cast<size_t>(report.grouping.period)];
  if (report.grouping.by_event)
    title += report.grouping.period == report_period::none ? " per event" : " and event";
  return title;
}

// The period as days; false for one that no calendar has.
static bool place_period(const counter_day& start, bool is_month, chart_period& period) {
  const auto first = calendar_day({start.year, start.month, is_month ? 1 : start.day});
  if (!first) return false;
  period.begin = *first;
  period.end =
      is_month ? sys_days(*first + std::chrono::months(1)) : period.begin + std::chrono::days(1);
  return true;
}

// "2026-11-01 to 2026-11-15", of the periods that can be placed; empty when there are none.
static std::string span_text(const counter_report& report) {
  std::string first;
  std::string last;
  for (const report_row& row : report.rows) {
    chart_period ignored;
    if (!place_period(row.start, report.grouping.period == report_period::month, ignored)) continue;
    last = report.period_text(row.start);
    if (first.empty()) first = last;
  }
  return first == last ? first : first + " to " + last;
}

static svg_writer begin_chart(const counter_report& report, double height,
                              const std::string& most) {
  std::string subtitle = entries_text(report.total) + " of " + counted(report.events, "event") +
                         " on " + counted(report.days, "day");
  const std::string span = report.grouping.period == report_period::none ? "" : span_text(report);
  if (!span.empty()) subtitle += ", " + span;
  svg_writer svg(chart_width, height, chart_style, chart_title(report),
                 subtitle + (most.empty() ? "." : ". Most: " + most + "."));
  svg.rectangle("paper", {0, 0, chart_width, height});
  svg.text("title", margin, 38, chart_title(report));
  svg.text("subtitle", margin, 60, subtitle);
  return svg;
}

// --- Columns over time

// The most frequent events of the report, in order.
static void choose_series(const counter_report& report, chart_timeline& timeline) {
  if (!report.grouping.by_event) return;
  std::map<uint32_t, uint64_t> totals;
  for (const report_row& row : report.rows) totals[row.id] += row.count;
  for (const auto& [id, total] : totals) timeline.series.push_back(id);
  std::stable_sort(timeline.series.begin(), timeline.series.end(),
                   [&](uint32_t a, uint32_t b) { return totals[a] > totals[b]; });
  if (timeline.series.size() <= series_limit) return;
  timeline.others = timeline.series.size() - series_limit;
  timeline.series.resize(series_limit);
}

static size_t series_of(const chart_timeline& timeline, uint32_t id) {
  if (timeline.series.empty()) return 0;
  const auto found = std::find(timeline.series.begin(), timeline.series.end(), id);
  return found == timeline.series.end() ? series_limit
                                        : static_cast<size_t>(found - timeline.series.begin());
}

static chart_timeline timeline_of(const counter_report& report) {
  chart_timeline timeline;
  choose_series(report, timeline);
  for (const report_row& row : report.rows) {
    chart_period period{.name = report.period_text(row.start),
                        .begin = {},
                        .end = {},
                        .counts = std::vector<uint64_t>(series_limit + 1)};
    if (!place_period(row.start, report.grouping.period == report_period::month, period)) {
      timeline.unplaced += row.count;
      continue;
    }
    if (timeline.periods.empty() || timeline.periods.back().begin != period.begin)
      timeline.periods.push_back(std::move(period));
    chart_period& last = timeline.periods.back();
    last.counts[series_of(timeline, row.id)] += row.count;
    last.total += row.count;
    timeline.largest = std::max(timeline.largest, last.total);
  }
  return timeline;
}

static std::string series_name(const counter_report& report, const chart_timeline& timeline,
                               size_t series) {
  if (series < timeline.series.size()) return report.event_text(timeline.series[series]);
  return timeline.others == 0 ? "" : counted(timeline.others, "other event");
}

static void draw_count_axis(svg_writer& svg, const std::vector<axis_mark>& marks,
                            const chart_plot& plot) {
  const double height = plot.bottom - plot_top;
  for (const axis_mark& mark : marks) {
    const double y = plot.bottom - mark.position / marks.back().position * height;
    svg.line(mark.position == 0 ? "axis" : "grid", plot.left, y, plot.right, y);
    svg.text("right", plot.left - 8, y + label_drop, mark.label);
  }
}

static double column_position(const chart_timeline& timeline, const chart_plot& plot, double day) {
  const double first =
      static_cast<double>(timeline.periods.front().begin.time_since_epoch().count());
  const double end = static_cast<double>(timeline.periods.back().end.time_since_epoch().count());
  return plot.left + (day - first) / (end - first) * (plot.right - plot.left);
}

static void draw_day_axis(svg_writer& svg, const chart_timeline& timeline, const chart_plot& plot,
                          bool is_by_month) {
  const sys_days first = timeline.periods.front().begin;
  const sys_days end = timeline.periods.back().end;
  const size_t most = static_cast<size_t>((plot.right - plot.left) / 88);
  const double half_period = is_by_month ? 15 : 0.5;
  for (const axis_mark& mark :
       is_by_month ? month_marks(first, end, most) : day_marks(first, end, most)) {
    const double x = column_position(timeline, plot, mark.position + half_period);
    svg.line("axis", x, plot.bottom, x, plot.bottom + 5);
    svg.text("center", x, plot.bottom + 20, mark.label);
  }
}

static void draw_column(svg_writer& svg, const counter_report& report,
                        const chart_timeline& timeline, const chart_period& period,
                        const svg_box& column) {
  uint64_t below = 0;
  for (size_t series = 0; series < period.counts.size(); ++series) {
    const uint64_t count = period.counts[series];
    if (count == 0) continue;
    const double share = column.height / static_cast<double>(period.total);
    const double height = static_cast<double>(count) * share;
    below += count;
    const std::string name = series_name(report, timeline, series);
    svg.rectangle("s" + std::to_string(series),
                  {column.x, column.y + column.height - static_cast<double>(below) * share,
                   column.width, height},
                  period.name + (name.empty() ? "" : ", " + name) + ": " + entries_text(count));
  }
}

static void draw_columns(svg_writer& svg, const counter_report& report,
                         const chart_timeline& timeline, const chart_plot& plot, double top_mark) {
  for (const chart_period& period : timeline.periods) {
    if (period.total == 0) continue;
    const auto position = [&](sys_days day) {
      return column_position(timeline, plot, static_cast<double>(day.time_since_epoch().count()));
    };
    const double left = position(period.begin);
    const double slot = position(period.end) - left;
    const double width = std::clamp(slot * 0.8, 1.0, widest_column);
    const double height =
        std::max(1.0, static_cast<double>(period.total) / top_mark * (plot.bottom - plot_top));
    draw_column(svg, report, timeline, period,
                {left + (slot - width) / 2, plot.bottom - height, width, height});
  }
}

static void draw_legend(svg_writer& svg, const counter_report& report,
                        const chart_timeline& timeline, double left) {
  const size_t count = timeline.series.size() + (timeline.others == 0 ? 0 : 1);
  for (size_t series = 0; series < count; ++series) {
    const double y = plot_top + static_cast<double>(series) * 22;
    svg.rectangle("s" + std::to_string(series), {left, y, 12, 12});
    svg.text("value", left + 20, y + 10,
             shortened(series_name(report, timeline, series), legend_cells));
  }
}

static std::string largest_period(const chart_timeline& timeline) {
  for (const chart_period& period : timeline.periods)
    if (period.total == timeline.largest)
      return period.name + " with " + entries_text(period.total);
  return "";
}

static std::string timeline_chart(const counter_report& report) {
  const chart_timeline timeline = timeline_of(report);
  svg_writer svg = begin_chart(report, timeline_height, largest_period(timeline));
  if (timeline.periods.empty()) svg.text("center", chart_width / 2, 220, no_entries);
  if (timeline.unplaced != 0)
    svg.text("subtitle", margin, timeline_height - 14,
             "Not shown: " + entries_text(timeline.unplaced) + " of days that no calendar has");
  if (timeline.periods.empty()) return svg.finished();
  const std::vector<axis_mark> marks = count_marks(timeline.largest, 5);
  chart_plot plot;
  plot.left = margin + text_width(marks.back().label) + 12;
  if (!timeline.series.empty()) {
    plot.right -= legend_width;
    draw_legend(svg, report, timeline, plot.right + 24);
  }
  draw_count_axis(svg, marks, plot);
  draw_day_axis(svg, timeline, plot, report.grouping.period == report_period::month);
  draw_columns(svg, report, timeline, plot, marks.back().position);
  return svg.finished();
}

// --- A bar for each event

static void draw_bar_axis(svg_writer& svg, const std::vector<axis_mark>& marks,
                          const chart_plot& plot) {
  for (const axis_mark& mark : marks) {
    const double x = plot.left + mark.position / marks.back().position * (plot.right - plot.left);
    svg.line(mark.position == 0 ? "axis" : "grid", x, plot_top, x, plot.bottom);
    svg.text("center", x, plot.bottom + 18, mark.label);
  }
}

static std::string bar_chart(const counter_report& report) {
  const double bars = static_cast<double>(std::max(report.rows.size(), size_t{1})) * bar_pitch;
  chart_plot plot;
  plot.bottom = plot_top + bars;
  const double height = plot.bottom + 40;
  if (report.rows.empty()) {
    svg_writer svg = begin_chart(report, height, "");
    svg.text("center", chart_width / 2, plot_top + bar_height, no_entries);
    return svg.finished();
  }
  const report_row& first = report.rows.front();
  svg_writer svg = begin_chart(report, height,
                               report.event_text(first.id) + " with " + entries_text(first.count));
  const std::vector<axis_mark> marks = count_marks(first.count, 6);
  double widest_label = 0;
  for (const report_row& row : report.rows)
    widest_label =
        std::max(widest_label, text_width(shortened(report.event_text(row.id), label_cells)));
  plot.left = margin + widest_label + 10;
  plot.right -= text_width(std::to_string(first.count)) + 8;
  draw_bar_axis(svg, marks, plot);
  double top = plot_top + (bar_pitch - bar_height) / 2;
  for (const report_row& row : report.rows) {
    const double share = static_cast<double>(row.count) / marks.back().position;
    const double width = row.count == 0 ? 0 : std::max(1.0, share * (plot.right - plot.left));
    const std::string name = report.event_text(row.id);
    const double base = top + bar_height / 2 + label_drop;
    svg.text("name", plot.left - 10, base, shortened(name, label_cells));
    svg.rectangle("s0", {plot.left, top, width, bar_height}, name + ": " + entries_text(row.count));
    svg.text("value", plot.left + width + 8, base, std::to_string(row.count));
    top += bar_pitch;
  }
  return svg.finished();
}

std::string counter_chart(const counter_report& report) {
  return report.grouping.period == report_period::none ? bar_chart(report) : timeline_chart(report);
}
