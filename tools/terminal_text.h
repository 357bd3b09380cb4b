// Texts from files, made safe to show on a terminal.
#ifndef TOOLS_TERMINAL_TEXT_H
#define TOOLS_TERMINAL_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tools/utf8_text.h"

// Whether a character could move, hide or reorder what a terminal shows: controls, line separators,
// format characters, what is invisible unless a font knows better (variation selectors, fillers,
// tags), and noncharacters.
bool is_unsafe_on_terminal(uint32_t code_point);

// A character written out: \xNN below U+0080 and for a byte that is not UTF-8, else \u{NNNN}.
std::string written_out(const utf8_character& character);

// The text with unsafe characters, and bytes that are not UTF-8, written out. A tab becomes one
// blank.
std::string terminal_text(std::string_view text);

// The number in hexadecimal, with zeros in front up to `digits`.
std::string hexadecimal(uint32_t value, size_t digits);

// Cells that an escaped text takes on a terminal: two for wide characters, none for combining ones.
size_t terminal_width(std::string_view escaped);

#endif
