#include "tools/counts/svg.h"

#include <cstdio>

#include "recording/text/escape.h"

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
