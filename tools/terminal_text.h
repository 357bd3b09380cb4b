// Texts from files, made safe to show on a terminal.
#ifndef TOOLS_TERMINAL_TEXT_H
#define TOOLS_TERMINAL_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// Whether a character could move, hide or reorder what a terminal shows: controls, line separators,
// bidirectional controls, characters without width. All of them are below U+10000.
bool is_unsafe_on_terminal(uint32_t code_point);

// The text with unsafe characters written out, as \xNN below U+0080 and else as \u{NNNN}, and bytes
// that are not UTF-8 as \xNN. A tab becomes one blank.
std::string terminal_text(std::string_view text);

// The number in hexadecimal, with zeros in front up to `digits`.
std::string hexadecimal(uint32_t value, size_t digits);

// Cells that an escaped text takes on a terminal: two for wide characters, none for combining ones.
size_t terminal_width(std::string_view escaped);

#endif
