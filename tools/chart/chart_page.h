// The page of a chart: its size, its look, and what stands at its head.
#ifndef TOOLS_CHART_CHART_PAGE_H
#define TOOLS_CHART_CHART_PAGE_H

#include <cstdint>
#include <string>

#include "tools/chart/chart_parts.h"

// Lengths are in pixels of an image that nobody scales.
inline constexpr double chart_width = 960;
inline constexpr double margin = 24;
inline constexpr double plot_top = 88;
inline constexpr double label_drop = 4;  // from the middle of a line of text to its base

inline constexpr const char* no_entries = "No entries";

// What is said in words.
struct chart_words {
  std::string title;
  std::string subtitle;
  std::string most;  // "X with 3 entries"; empty: none
};

// A page with its head. It follows the reader's choice of light and dark.
svg_writer begin_chart(const chart_words& words, double height);

// "1 entry", "2 entries"
std::string entries_text(uint64_t count);

// At most `cells` of a text that is escaped for a terminal, and how wide about it is.
std::string shortened_label(const std::string& text, size_t cells);
double label_width(const std::string& text);

#endif
