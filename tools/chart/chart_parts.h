// What charts are made of: the few elements of SVG, and the marks of axes.
#ifndef TOOLS_CHART_CHART_PARTS_H
#define TOOLS_CHART_CHART_PARTS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// --- SVG

struct svg_box {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
};

class svg_writer {
 public:
  // `style` is the style sheet; `title` and `description` are what screen readers say.
  svg_writer(double width, double height, std::string_view style, std::string_view title,
             std::string_view description);

  void rectangle(std::string_view css_class, const svg_box& box, std::string_view title = "");
  void line(std::string_view css_class, double x1, double y1, double x2, double y2);
  void text(std::string_view css_class, double x, double y, std::string_view text);

  // The whole image. Nothing can be added behind it.
  std::string finished();

 private:
  std::string xml_;
};

// --- Axes: where their lines are, and what they are called.

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
