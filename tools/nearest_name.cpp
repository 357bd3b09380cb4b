#include "tools/nearest_name.h"

#include <algorithm>
#include <numeric>

static bool is_same_letter(char a, char b) {
  const auto lower = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  };
  return lower(a) == lower(b);
}

// Insertions, removals and replacements of letters, and swaps of neighbours, that lead from one
// name to the other.
static size_t edit_distance(std::string_view a, std::string_view b) {
  std::vector<size_t> before(b.size() + 1);
  std::vector<size_t> last(b.size() + 1);
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    before.swap(last);
    last.swap(row);
    row[0] = i + 1;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = last[j] + (is_same_letter(a[i], b[j]) ? 0 : 1);
      row[j + 1] = std::min({replaced, row[j] + 1, last[j + 1] + 1});
      if (i > 0 && j > 0 && is_same_letter(a[i], b[j - 1]) && is_same_letter(a[i - 1], b[j]))
        row[j + 1] = std::min(row[j + 1], before[j - 1] + 1);
    }
  }
  return row.back();
}

std::string nearest_name_hint(std::string_view name,
                              const std::vector<std::string_view>& candidates) {
  constexpr size_t longest = 64;  // names beyond are not worth the comparison
  if (name.size() > longest) return "";
  size_t best = name.size() / 3 + 1;  // beyond a third of the letters it is another name
  std::string_view nearest;
  for (const std::string_view candidate : candidates) {
    if (candidate.size() > longest) continue;
    const size_t distance = edit_distance(name, candidate);
    if (distance >= best) continue;
    best = distance;
    nearest = candidate;
  }
  return nearest.empty() ? "" : "; did you mean \"" + std::string(nearest) + "\"?";
}
