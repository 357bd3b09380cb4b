// Words and tables for people.
#ifndef RECORDING_TEXT_WORDS_H
#define RECORDING_TEXT_WORDS_H

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// "1 event", "2 events"
std::string counted(size_t count, const std::string& what);

// The text between double quotes, as it is: what prints it escapes the whole.
std::string in_quotes(std::string_view text);

// The text without blanks at its ends.
std::string_view without_blanks(std::string_view text);

// Of a text that is longer than 64 bytes the characters that fit, and "..."; else the text.
std::string shortened(std::string_view text);

// "; did you mean "X"?" for the candidate with the fewest changed letters, letter case ignored;
// "" when none is near: more than a third of the letters are others. Swapped neighbours are one
// change. The first of several equally near. Nothing with more than `most` changes is near.
std::string nearest_name_hint(std::string_view name,
                              const std::vector<std::string_view>& candidates,
                              size_t most = SIZE_MAX);

using text_row = std::vector<std::string>;

// The rows, at least one, as lines with columns as wide as their widest cell, two blanks apart; the
// first row is the headings. Cells come escaped for a terminal, and are aligned to the left but in
// the columns of `right_aligned`, which count from 0. No line ends in blanks.
std::string in_columns(const std::vector<text_row>& rows,
                       const std::set<size_t>& right_aligned = {});

#endif
