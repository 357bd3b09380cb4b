// Tables of text for people.
#ifndef TOOLS_TEXT_COLUMNS_H
#define TOOLS_TEXT_COLUMNS_H

#include <set>
#include <string>
#include <vector>

using text_row = std::vector<std::string>;

// The rows, at least one, as lines with columns as wide as their widest cell, two blanks apart; the
// first row is the headings. Cells come escaped for a terminal, and are aligned to the left but in
// the columns of `right_aligned`, which count from 0. No line ends in blanks.
std::string in_columns(const std::vector<text_row>& rows,
                       const std::set<size_t>& right_aligned = {});

#endif
