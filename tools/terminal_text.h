// Texts from files, made safe to show on a terminal.
#ifndef TOOLS_TERMINAL_TEXT_H
#define TOOLS_TERMINAL_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

// The text with everything that could move, hide or reorder what a terminal shows written out:
// control characters as \xNN, line separators, bidirectional controls and C1 characters as
// \u{NNNN}, bytes that are not UTF-8 as \xNN. A tab becomes one blank.
std::string terminal_text(std::string_view text);

// Cells that an escaped text takes on a terminal: two for wide characters, none for combining ones.
size_t terminal_width(std::string_view escaped);

#endif
