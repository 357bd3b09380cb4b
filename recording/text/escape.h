// Texts in the languages that the tools write. Each language says what stands for a character that
// means something else in it; what is unsafe on a terminal is written out in all of them, so that
// it can be seen, and read back as the same character.
#ifndef RECORDING_TEXT_ESCAPE_H
#define RECORDING_TEXT_ESCAPE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "recording/text/line_writer.h"
#include "recording/text/utf8.h"

// Whether a character could move, hide or reorder what a terminal shows: controls, line separators,
// format characters, what is invisible unless a font knows better (variation selectors, fillers,
// tags), and noncharacters.
bool is_unsafe_on_terminal(uint32_t code_point);

// --- For programs: readers of the language have the text again. A byte that is not UTF-8 becomes
// U+FFFD, except in C++ and PO files, which have a place for it.

// A JSON text with its quotes: \uNNNN, as a pair of surrogates above U+FFFF.
std::string json_string(std::string_view text);
void append_json_text(std::string& json, std::string_view text);
void append_json_text(line_writer& json, std::string_view text);

// A YAML scalar in double quotes: \xNN, \uNNNN, \UNNNNNNNN.
std::string yaml_quoted(std::string_view text);

// A C++ literal of one line, with its quotes: each byte as an octal escape of three digits.
std::string cpp_literal(std::string_view text);

// A string of a PO file with its quotes. Translators work in these: of what is unsafe only the
// control characters of ASCII are written out, in octal.
std::string po_quoted(std::string_view text);

// A string in the source of an ICU resource bundle, with its quotes: \uNNNN, \UNNNNNNNN.
std::string genrb_quoted(std::string_view text);

// --- For people: \xNN below U+0080 and for a byte that is not UTF-8, else \u{NNNN}. A backslash
// stays as it is.

// A character written out.
std::string written_out(const utf8_character& character);

// A text on a terminal. A tab becomes one blank.
std::string terminal_text(std::string_view text);

// The same between the tags of XML.
std::string xml_text(std::string_view text);

// Appends the same to a line of a log, in which a tab stays.
void append_log_text(std::string& line, std::string_view text);
void append_log_text(line_writer& line, std::string_view text);

// Cells that an escaped text takes on a terminal: two for wide characters, none for combining ones.
size_t terminal_width(std::string_view escaped);

#endif
