#include "tools/counts/chart.h"

#include <algorithm>
#include <chrono>
#include <map>

#include "recording/text/escape.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"
#include "tools/chart/bars.h"
#include "tools/chart/chart_page.h"

using std::chrono::sys_days;

// Lengths are in pixels.
static constexpr double timeline_height = 420;
static constexpr double timeline_bottom = 368;  // of the plot
static constexpr double widest_column = 72;
static constexpr double legend_width = 220;
static constexpr size_t legend_cells = 20;  // of events in the legend
static constexpr size_t series_limit = 6;   // events with a color of their own

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

static chart_words words_of(const counter_report& report, const std::string& most) {
  std::string subtitle = entries_text(report.total) + " of " + counted(report.events, "event") +
                         " on " + counted(report.days, "day");
  const std::string span = report.grouping.period == report_period::none ? "" : span_text(report);
  if (!span.empty()) subtitle += ", " + span;
  return {chart_title(report), subtitle, most};
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
             shortened_label(series_name(report, timeline, series), legend_cells));
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
  svg_writer svg = begin_chart(words_of(report, largest_period(timeline)), timeline_height);
  if (timeline.periods.empty()) svg.text("center", chart_width / 2, 220, no_entries);
  if (timeline.unplaced != 0)
    svg.text("subtitle", margin, timeline_height - 14,
             "Not shown: " + entries_text(timeline.unplaced) + " of days that no calendar has");
  if (timeline.periods.empty()) return svg.finished();
  const std::vector<axis_mark> marks = count_marks(timeline.largest, 5);
  chart_plot plot;
  plot.left = margin + label_width(marks.back().label) + 12;
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

static std::string event_chart(const counter_report& report) {
  std::vector<chart_bar> bars;
  for (const report_row& row : report.rows) bars.push_back({report.event_text(row.id), row.count});
  const std::string most =
      bars.empty() ? "" : bars.front().name + " with " + entries_text(bars.front().count);
  return bar_chart(words_of(report, most), bars);
}

std::string counter_chart(const counter_report& report) {
  return report.grouping.period == report_period::none ? event_chart(report)
                                                       : timeline_chart(report);
}
