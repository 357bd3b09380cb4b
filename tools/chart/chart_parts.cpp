#include "tools/chart/chart_parts.h"

#include <array>
#include <cmath>
#include <cstdio>

#include "recording/sinks/counter_record.h"
#include "recording/text/escape.h"

// --- SVG

// Two decimals; finer than a pixel.
static std::string svg_number(double value) {
  char text[400];
  static_cast<void>(snprintf(text, sizeof text, "%.2f", value));
  return text;
}

static std::string attribute(const char* name, double value) {
  return std::string(" ") + name + "=\"" + svg_number(value) + "\"";
}

static std::string class_attribute(std::string_view css_class) {
  return " class=\"" + std::string(css_class) + "\"";
}

svg_writer::svg_writer(double width, double height, std::string_view style, std::string_view title,
                       std::string_view description) {
  const std::string size = svg_number(width) + " " + svg_number(height);
  xml_ =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " +
      size + "\"" + attribute("width", width) + attribute("height", height) +
      " role=\"img\" aria-labelledby=\"kplog-chart-title kplog-chart-description\">\n"
      "<title id=\"kplog-chart-title\">" +
      xml_text(title) +
      "</title>\n"
      "<desc id=\"kplog-chart-description\">" +
      xml_text(description) +
      "</desc>\n"
      "<style>\n" +
      std::string(style) + "</style>\n";
}

void svg_writer::rectangle(std::string_view css_class, const svg_box& box, std::string_view title) {
  xml_ += "<rect" + class_attribute(css_class) + attribute("x", box.x) + attribute("y", box.y) +
          attribute("width", box.width) + attribute("height", box.height);
  xml_ += title.empty() ? "/>\n" : "><title>" + xml_text(title) + "</title></rect>\n";
}

void svg_writer::line(std::string_view css_class, double x1, double y1, double x2, double y2) {
  xml_ += "<line" + class_attribute(css_class) + attribute("x1", x1) + attribute("y1", y1) +
          attribute("x2", x2) + attribute("y2", y2) + "/>\n";
}

void svg_writer::text(std::string_view css_class, double x, double y, std::string_view text) {
  xml_ += "<text" + class_attribute(css_class) + attribute("x", x) + attribute("y", y) + ">" +
          xml_text(text) + "</text>\n";
}

std::string svg_writer::finished() {
  return xml_ + "</svg>\n";
}

using std::chrono::sys_days;
using std::chrono::year_month_day;

// --- Axes: counts

struct count_unit_row {
  double size;
  const char* name;
};

static constexpr std::array<count_unit_row, 6> count_units = {
    {{1e15, "P"}, {1e12, "T"}, {1e9, "G"}, {1e6, "M"}, {1e3, "k"}, {1, ""}}};

// 1, 2 or 5 and zeros, so that `most` of it reach `largest`.
static double count_step(double largest, size_t most) {
  double step = 1;
  for (size_t i = 0; step * static_cast<double>(most) < largest; ++i) step *= i % 3 == 1 ? 2.5 : 2;
  return step;
}

static std::string count_label(double count, double step) {
  for (const count_unit_row& unit : count_units)
    if (step >= unit.size && count != 0)
      return std::to_string(std::llround(count / unit.size)) + unit.name;
  return "0";
}

std::vector<axis_mark> count_marks(uint64_t largest, size_t most) {
  const double step = count_step(static_cast<double>(largest), most);
  std::vector<axis_mark> marks = {{0, "0"}};
  while (marks.size() == 1 || marks.back().position < static_cast<double>(largest)) {
    const double count = static_cast<double>(marks.size()) * step;
    marks.push_back({count, count_label(count, step)});
  }
  return marks;
}

// --- Axes: days

enum class calendar_unit { day, month, year };

// Steps from one mark to the next; `days` is how many it takes at least.
struct calendar_step_row {
  calendar_unit unit;
  int units;
  int days;
};

static constexpr std::array<calendar_step_row, 16> calendar_steps = {{
    {calendar_unit::day, 1, 1},
    {calendar_unit::day, 2, 2},
    {calendar_unit::day, 7, 7},
    {calendar_unit::day, 14, 14},
    {calendar_unit::month, 1, 28},
    {calendar_unit::month, 2, 59},
    {calendar_unit::month, 3, 89},
    {calendar_unit::month, 6, 181},
    {calendar_unit::year, 1, 365},
    {calendar_unit::year, 2, 730},
    {calendar_unit::year, 5, 1826},
    {calendar_unit::year, 10, 3652},
    {calendar_unit::year, 50, 18262},
    {calendar_unit::year, 100, 36524},
    {calendar_unit::year, 500, 182621},
    {calendar_unit::year, 1000, 365242},
}};

static const calendar_step_row& calendar_step(int span, size_t most, bool within_months) {
  for (const calendar_step_row& row : calendar_steps) {
    const bool is_allowed = within_months || row.unit != calendar_unit::day;
    if (is_allowed && static_cast<size_t>(span / row.days) < most) return row;
  }
  return calendar_steps.back();
}

static std::string calendar_label(const year_month_day& day, calendar_unit unit) {
  const std::string text = day_text(counter_day_of(day));
  static constexpr std::array<size_t, 3> sizes = {10, 7, 4};  // by unit
  return text.substr(0, sizes[static_cast<size_t>(unit)]);
}

// The first mark that is not before `day`: a multiple of the step, counted from the year 0.
static year_month_day first_mark(sys_days day, const calendar_step_row& step) {
  const year_month_day date(day);
  if (step.unit == calendar_unit::day) return date;
  const int year = int(date.year());
  const int month = static_cast<int>(unsigned(date.month())) - 1;
  const int months = step.unit == calendar_unit::year ? step.units * 12 : step.units;
  const int passed = year * 12 + month + (unsigned(date.day()) > 1 ? 1 : 0);
  const int next = (passed + months - 1) / months * months;
  return std::chrono::year(next / 12) / (next % 12 + 1) / 1;
}

static year_month_day next_mark(const year_month_day& mark, const calendar_step_row& step) {
  switch (step.unit) {
    case calendar_unit::day:
      return sys_days(mark) + std::chrono::days(step.units);
    case calendar_unit::month:
      return mark + std::chrono::months(step.units);
    case calendar_unit::year:
      break;
  }
  return mark + std::chrono::years(step.units);
}

static std::vector<axis_mark> calendar_marks(sys_days first, sys_days end, size_t most,
                                             bool within_months) {
  const calendar_step_row& step =
      calendar_step(static_cast<int>((end - first).count()) - 1, most, within_months);
  std::vector<axis_mark> marks;
  for (year_month_day mark = first_mark(first, step); sys_days(mark) < end;
       mark = next_mark(mark, step))
    marks.push_back({static_cast<double>(sys_days(mark).time_since_epoch().count()),
                     calendar_label(mark, step.unit)});
  return marks;
}

std::vector<axis_mark> day_marks(sys_days first, sys_days end, size_t most) {
  return calendar_marks(first, end, most, true);
}

std::vector<axis_mark> month_marks(sys_days first, sys_days end, size_t most) {
  return calendar_marks(first, end, most, false);
}
