// The few elements of SVG that charts are made of.
#ifndef TOOLS_COUNTS_SVG_H
#define TOOLS_COUNTS_SVG_H

#include <string>
#include <string_view>

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

#endif
