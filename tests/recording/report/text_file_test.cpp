// Places in sources, and texts made safe to show.
#include "recording/report/text_file.h"

#include <gtest/gtest.h>

#include <array>

#include "recording/text/terminal_text.h"
#include "tools/source/scalar_place.h"

// "LINE:COLUMN" of byte `offset` of the value of a scalar that begins at line 0, byte `begin`.
static std::string place_of(const std::string& text, size_t begin, std::string_view value,
                            size_t offset) {
  const source_text source("s", text);
  const source_place place = place_in_scalar({&source, begin}, value, offset);
  return std::to_string(place.line() + 1) + ":" + std::to_string(place.column());
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
  EXPECT_EQ((source_place{&source, 0}.column()), 1u);
  EXPECT_EQ((source_place{&source, 6}.column()), 4u);
  EXPECT_EQ((source_place{&source, 15}.column()), 9u);
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

TEST(SourceText, PlaceInALiteralBlockPassesEmptyLinesAndDeeperOnes) {
  const std::string_view value = "\n one\n\ntwo";
  EXPECT_EQ(place_of("|2\r\n\r\n   one\r\n\r\n  two\r\n", 0, value, 2), "3:4");
  EXPECT_EQ(place_of("|2\r\n\r\n   one\r\n\r\n  two\r\n", 0, value, 8), "5:4");
}

TEST(SourceText, PlaceInAFoldedTextFindsItsLine) {
  EXPECT_EQ(place_of(">\n  one\n  two\n", 0, "one two\n", 5), "3:4");
  EXPECT_EQ(place_of(">\n  one\n\n  two\n", 0, "one\ntwo\n", 5), "4:4");
  EXPECT_EQ(place_of(">\n  one\n    two\n  end", 0, "one\n  two\nend", 6), "3:5");
  EXPECT_EQ(place_of(">\n  one\n    two\n  end", 0, "one\n  two\nend", 10), "4:3");
}

TEST(SourceText, PlaceInATextOfSeveralLinesFindsItsLine) {
  EXPECT_EQ(place_of("\"one \r\n  two\"", 0, "one two", 5), "2:4");
  EXPECT_EQ(place_of("'one\n\n  t\'\'wo'", 0, "one\nt'wo", 6), "3:6");
  EXPECT_EQ(place_of("one\n \n\n  two", 0, "one\n\ntwo", 6), "4:4");
  EXPECT_EQ(place_of("\"one\\\n  \\ two\"", 0, "one two", 5), "2:6");
}

TEST(SourceText, PlaceInATextThatIsNotItsNotationIsItsBeginning) {
  EXPECT_EQ(place_of("one two", 0, "one  two", 6), "1:1");
  EXPECT_EQ(place_of("one", 0, "one two", 5), "1:1");
  EXPECT_EQ(place_of(">\n  one", 0, "two", 2), "1:1");
}

TEST(SourceText, QuoteIsClosedByItsPartnerAlone) {
  const auto is_closed = [](const std::string& text) {
    const source_text source("s", text);
    return is_quote_closed({&source, 0});
  };
  for (const char* closed : {"\"\"", "\'\'", "\"a\\\"\nb\"", "'it\'\'s'", "plain", "\"\\\\\"", ""})
    EXPECT_TRUE(is_closed(closed)) << closed;
  for (const char* open : {"\"", "'", "\"a\\\"", "'it\'\'s", "''' x", "\"'"})
    EXPECT_FALSE(is_closed(open)) << open;
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

// First and last of each range that a terminal shows as nothing, or shows others by.
TEST(TerminalText, WhatIsInvisibleIsWrittenOut) {
  constexpr std::array<std::array<uint32_t, 2>, 22> ranges = {{
      {0xAD, 0xAD},       {0x34F, 0x34F},       {0x61C, 0x61C},     {0x115F, 0x1160},
      {0x17B4, 0x17B5},   {0x180B, 0x180F},     {0x200B, 0x200F},   {0x2028, 0x2029},
      {0x202A, 0x202E},   {0x2060, 0x206F},     {0x3164, 0x3164},   {0xFDD0, 0xFDEF},
      {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},     {0xFFA0, 0xFFA0},   {0xFFF0, 0xFFFB},
      {0xFFFE, 0xFFFF},   {0x1D173, 0x1D17A},   {0x1FFFE, 0x1FFFF}, {0xE0000, 0xE0FFF},
      {0xEFFFE, 0xEFFFF}, {0x10FFFE, 0x10FFFF},
  }};
  for (const auto& [first, last] : ranges)
    for (uint32_t code_point = first; code_point <= last; ++code_point)
      EXPECT_TRUE(is_unsafe_on_terminal(code_point)) << std::hex << code_point;
  EXPECT_EQ(terminal_text("a\u00ADb\U000E0041c"), "a\\u{00AD}b\\u{E0041}c");
}

TEST(TerminalText, WhatCanBeSeenIsNotWrittenOut) {
  for (const uint32_t code_point :
       {0x20u, 0x7Eu, 0xA0u, 0xE4u, 0x301u, 0x600u, 0x2010u, 0x3000u, 0xE000u, 0xFFFDu, 0x1F600u})
    EXPECT_FALSE(is_unsafe_on_terminal(code_point)) << std::hex << code_point;
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
