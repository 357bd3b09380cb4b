// What a terminal shows of a text. Texts are made safe for it by recording/text/escape.h.
#ifndef RECORDING_TEXT_TERMINAL_TEXT_H
#define RECORDING_TEXT_TERMINAL_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "recording/text/escape.h"

// Whether a character could move, hide or reorder what a terminal shows: controls, line separators,
// format characters, what is invisible unless a font knows better (variation selectors, fillers,
// tags), and noncharacters.
bool is_unsafe_on_terminal(uint32_t code_point);

// The number in hexadecimal, with zeros in front up to `digits`.
std::string hexadecimal(uint32_t value, size_t digits);

// Cells that an escaped text takes on a terminal: two for wide characters, none for combining ones.
size_t terminal_width(std::string_view escaped);

#endif
