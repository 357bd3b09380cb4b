#include "tools/text_columns.h"

#include <algorithm>

#include "tools/terminal_text.h"

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
