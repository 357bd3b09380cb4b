#include "tools/chart/chart_page.h"

#include "recording/text/escape.h"
#include "recording/text/utf8.h"

static constexpr double cell_width = 8.5;  // of a wide capital letter, about

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

svg_writer begin_chart(const chart_words& words, double height) {
  svg_writer svg(chart_width, height, chart_style, words.title,
                 words.subtitle + (words.most.empty() ? "." : ". Most: " + words.most + "."));
  svg.rectangle("paper", {0, 0, chart_width, height});
  svg.text("title", margin, 38, words.title);
  svg.text("subtitle", margin, 60, words.subtitle);
  return svg;
}

std::string entries_text(uint64_t count) {
  return std::to_string(count) + (count == 1 ? " entry" : " entries");
}

std::string shortened_label(const std::string& text, size_t cells) {
  if (terminal_width(text) <= cells) return text;
  std::string kept;
  for (const utf8_character& character : utf8(text)) {
    const std::string longer = kept + std::string(character.bytes);
    if (terminal_width(longer) >= cells) break;
    kept = longer;
  }
  return kept + "\u2026";
}

double label_width(const std::string& text) {
  return static_cast<double>(terminal_width(text)) * cell_width;
}
