// Places in sources, and texts made safe to show.
#include "tools/source_text.h"

#include <gtest/gtest.h>

#include "tools/nearest_name.h"
#include "tools/terminal_text.h"
#include "tools/utf8_text.h"

// "LINE:COLUMN" of byte `offset` of the value of a scalar that begins at line 0, byte `begin`.
static std::string place_of(const std::string& text, size_t begin, std::string_view value,
                            size_t offset) {
  const source_text source("s", text);
  const source_place place = place_in_scalar({&source, 0, begin}, value, offset);
  return std::to_string(place.line + 1) + ":" + std::to_string(place.column());
}

TEST(SourceText, LinesComeWithoutTheirEndings) {
  const source_text source("s", "one\r\ntwo\n\nlast");
  EXPECT_EQ(source.line_count(), 4u);
  EXPECT_EQ(source.line(0), "one");
  EXPECT_EQ(source.line(1), "two");
  EXPECT_EQ(source.line(2), "");
  EXPECT_EQ(source.line(3), "last");
  EXPECT_EQ(source.line(4), "");
}

TEST(SourceText, ByteOrderMarkIsLeftOut) {
  EXPECT_EQ(source_text("s", "\xEF\xBB\xBFkplog").bytes(), "kplog");
}

TEST(SourceText, ColumnsCountCharacters) {
  const source_text source("s", "äöü: 日本 x");
  EXPECT_EQ((source_place{&source, 0, 0}.column()), 1u);
  EXPECT_EQ((source_place{&source, 0, 6}.column()), 4u);
  EXPECT_EQ((source_place{&source, 0, 15}.column()), 9u);
}

TEST(SourceText, PlaceInPlainTextIsByteByByte) {
  EXPECT_EQ(place_of("a: bcd", 3, "bcd", 2), "1:6");
}

TEST(SourceText, PlaceInDoubleQuotesPassesEscapes) {
  EXPECT_EQ(place_of(R"("\t\x41\u00e4\\z")", 0, "\tA\xC3\xA4\\z", 5), "1:16");
}

TEST(SourceText, PlaceInSingleQuotesPassesDoubledOnes) {
  EXPECT_EQ(place_of("'it''s z'", 0, "it's z", 5), "1:8");
}

TEST(SourceText, PlaceInALiteralBlockFindsItsLine) {
  EXPECT_EQ(place_of("|\n  one\n   two\n", 0, "one\n two\n", 5), "3:4");
}

TEST(SourceText, PlaceInAFoldedTextIsItsBeginning) {
  EXPECT_EQ(place_of(">\n  one\n  two\n", 0, "one two\n", 5), "1:1");
  EXPECT_EQ(place_of("\"one\n  two\"", 0, "one two", 5), "1:1");
}

TEST(Utf8Text, BrokenFormsAreInvalid) {
  for (const char* broken : {"\x80", "\xC0\xAF", "\xC3", "\xE0\x80\x80", "\xED\xA0\x80",
                             "\xF4\x90\x80\x80", "\xF5", "\xFF", "\xE2\x82"})
    EXPECT_EQ(utf8_first_invalid(broken), 0u) << broken;
  EXPECT_EQ(utf8_first_invalid("aä€😀"), std::string_view::npos);
  EXPECT_EQ(utf8_first_invalid("aä\x80"), 3u);
}

TEST(Utf8Text, LengthInUtf16CountsPairsTwice) {
  EXPECT_EQ(utf16_length("aä€😀"), 5u);
}

TEST(TerminalText, WhatMovesOrHidesIsWrittenOut) {
  EXPECT_EQ(terminal_text("a\x1b[31mb"), "a\\x1B[31mb");
  EXPECT_EQ(terminal_text(std::string("nul\0", 4)), "nul\\x00");
  EXPECT_EQ(terminal_text("\xC2\x9B"
                          "1m"),
            "\\u{009B}1m");
  EXPECT_EQ(terminal_text("\x9B"), "\\x9B");
  EXPECT_EQ(terminal_text("\u202Egnp.exe"), "\\u{202E}gnp.exe");
  EXPECT_EQ(terminal_text("a\u2028b\u2066c"), "a\\u{2028}b\\u{2066}c");
  EXPECT_EQ(terminal_text("a\tb\x7F"), "a b\\x7F");
  EXPECT_EQ(terminal_text("Größe 日本 \\n"), "Größe 日本 \\n");
}

TEST(TerminalText, EveryByteComesOutPrintable) {
  for (int byte = 0; byte < 256; ++byte)
    for (const char shown : terminal_text(std::string(1, static_cast<char>(byte))))
      EXPECT_TRUE(shown >= 0x20 && shown < 0x7F) << byte;
}

TEST(TerminalText, WideCharactersTakeTwoCells) {
  EXPECT_EQ(terminal_width("ab"), 2u);
  EXPECT_EQ(terminal_width("日本"), 4u);
  EXPECT_EQ(terminal_width("e\u0301"), 1u);
}

TEST(NearestName, SuggestsTheClosestAndNothingFarAway) {
  EXPECT_EQ(nearest_name_hint("UInt3", {"UInt1", "UInt4", "Char32"}), "; did you mean \"UInt1\"?");
  EXPECT_EQ(nearest_name_hint("uint4", {"UInt1", "UInt4"}), "; did you mean \"UInt4\"?");
  EXPECT_EQ(nearest_name_hint("Integer", {"UInt1", "Float"}), "");
  EXPECT_EQ(nearest_name_hint("x", {}), "");
}
