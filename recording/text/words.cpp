#include "recording/text/words.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

#include "recording/text/escape.h"
#include "recording/text/utf8.h"

std::string counted(size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string in_quotes(std::string_view text) {
  return '"' + std::string(text) + '"';
}

std::string_view without_blanks(std::string_view text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string shortened(std::string_view text) {
  constexpr size_t limit = 64;
  if (text.size() <= limit) return std::string(text);
  size_t end = 0;
  for (const utf8_character& character : utf8(text)) {
    if (character.offset > limit) break;
    end = character.offset;
  }
  return std::string(text.substr(0, end)) + "...";
}

static bool is_same_letter(char a, char b) {
  const auto lower = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  };
  return lower(a) == lower(b);
}

// Names beyond are not worth the comparison.
static constexpr size_t longest = 64;

// Insertions, removals and replacements of letters, and swaps of neighbours, that lead from one
// name to the other, none beyond `longest`; `enough` where there are as many or more.
static size_t edit_distance(std::string_view a, std::string_view b, size_t enough) {
  if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) >= enough) return enough;
  using distances = std::array<size_t, longest + 1>;
  distances rows[3];
  distances* before = &rows[0];
  distances* last = &rows[1];
  distances* row = &rows[2];
  std::iota(row->begin(), row->end(), size_t{0});
  size_t least_of_last = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    std::swap(before, last);
    std::swap(last, row);
    size_t least = (*row)[0] = i + 1;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = (*last)[j] + (is_same_letter(a[i], b[j]) ? 0 : 1);
      size_t& here = (*row)[j + 1];
      here = std::min({replaced, (*row)[j] + 1, (*last)[j + 1] + 1});
      if (i > 0 && j > 0 && is_same_letter(a[i], b[j - 1]) && is_same_letter(a[i - 1], b[j]))
        here = std::min(here, (*before)[j - 1] + 1);
      least = std::min(least, here);
    }
    // A swap goes on from the row before the last.
    if (least >= enough && least_of_last >= enough) return enough;
    least_of_last = least;
  }
  return std::min((*row)[b.size()], enough);
}

std::string nearest_name_hint(std::string_view name,
                              const std::vector<std::string_view>& candidates, size_t most) {
  if (name.size() > longest) return "";
  size_t best =
      std::min(name.size() / 3, most) + 1;  // beyond a third of the letters it is another name
  std::string_view nearest;
  for (const std::string_view candidate : candidates) {
    if (candidate.size() > longest) continue;
    const size_t distance = edit_distance(name, candidate, best);
    if (distance >= best) continue;
    best = distance;
    nearest = candidate;
  }
  return nearest.empty() ? "" : "; did you mean " + in_quotes(nearest) + "?";
}

static std::vector<size_t> column_widths(const std::vector<text_row>& rows) {
  std::vector<size_t> widths(rows.front().size());
  for (const text_row& row : rows)
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], terminal_width(row[i]));
  return widths;
}

std::string in_columns(const std::vector<text_row>& rows, const std::set<size_t>& right_aligned) {
  const std::vector<size_t> widths = column_widths(rows);
  std::string table;
  for (const text_row& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - terminal_width(row[i]), ' ');
      const bool is_right = right_aligned.count(i) != 0;
      line += is_right ? padding + row[i] : row[i] + padding;
      line += "  ";
    }
    table += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
  }
  return table;
}
