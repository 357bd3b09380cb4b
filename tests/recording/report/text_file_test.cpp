// Places in sources.
#include "recording/report/text_file.h"

#include <gtest/gtest.h>

#include "tools/source/scalar_place.h"

// "LINE:COLUMN" of byte `offset` of the value of a scalar that begins at line 0, byte `begin`.
static std::string place_of(const std::string& text, size_t begin, std::string_view value,
                            size_t offset) {
  const text_file source("s", text);
  const text_place place = place_in_scalar({&source, begin}, value, offset);
  return std::to_string(place.line() + 1) + ":" + std::to_string(place.column());
}

TEST(SourceText, LinesComeWithoutTheirEndings) {
  const text_file source("s", "one\r\ntwo\n\nlast");
  EXPECT_EQ(source.line_count(), 4u);
  EXPECT_EQ(source.line(0), "one");
  EXPECT_EQ(source.line(1), "two");
  EXPECT_EQ(source.line(2), "");
  EXPECT_EQ(source.line(3), "last");
  EXPECT_EQ(source.line(4), "");
}

TEST(SourceText, ByteOrderMarkIsLeftOut) {
  EXPECT_EQ(text_file("s", "\xEF\xBB\xBFkplog").bytes(), "kplog");
}

TEST(SourceText, ColumnsCountCharacters) {
  const text_file source("s", "äöü: 日本 x");
  EXPECT_EQ((text_place{&source, 0}.column()), 1u);
  EXPECT_EQ((text_place{&source, 6}.column()), 4u);
  EXPECT_EQ((text_place{&source, 15}.column()), 9u);
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
    const text_file source("s", text);
    return is_quote_closed({&source, 0});
  };
  for (const char* closed : {"\"\"", "\'\'", "\"a\\\"\nb\"", "'it\'\'s'", "plain", "\"\\\\\"", ""})
    EXPECT_TRUE(is_closed(closed)) << closed;
  for (const char* open : {"\"", "'", "\"a\\\"", "'it\'\'s", "''' x", "\"'"})
    EXPECT_FALSE(is_closed(open)) << open;
}
