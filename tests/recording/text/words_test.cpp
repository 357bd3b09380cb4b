#include "recording/text/words.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

TEST(InQuotes, TextsStayAsTheyAre) {
  EXPECT_EQ(in_quotes(""), "\"\"");
  EXPECT_EQ(in_quotes("a \"b\\\n\x1B"), "\"a \"b\\\n\x1B\"");
  EXPECT_EQ(in_quotes(std::string_view("a\0b", 3)), std::string("\"a\0b\"", 5));
}

TEST(Shortened, TextsOfMoreThan64BytesAreCutBetweenCharacters) {
  const std::string most(64, 'x');
  EXPECT_EQ(shortened(""), "");
  EXPECT_EQ(shortened(most), most);
  EXPECT_EQ(shortened(most + "y"), most + "...");
  for (size_t size = 1; size <= 4; ++size) {
    const std::string character = std::array{"z", "\u00E4", "\u65E5", "\U0001F600"}[size - 1];
    for (size_t begin = 60; begin < 64; ++begin) {
      const std::string before(begin, 'x');
      const bool fits = begin + size <= 64;
      EXPECT_EQ(shortened(before + character + "yyyyy"),
                before + (fits ? character + std::string(64 - begin - size, 'y') : "") + "...")
          << begin << ' ' << size;
    }
  }
  EXPECT_EQ(shortened(std::string(63, 'x') + "\xE6\x97yy"), std::string(63, 'x') + "\xE6...");
}

TEST(NearestName, SuggestsTheClosestAndNothingFarAway) {
  EXPECT_EQ(nearest_name_hint("UInt3", {"UInt1", "UInt4", "Char32"}), "; did you mean \"UInt1\"?");
  EXPECT_EQ(nearest_name_hint("uint4", {"UInt1", "UInt4"}), "; did you mean \"UInt4\"?");
  EXPECT_EQ(nearest_name_hint("Integer", {"UInt1", "Float"}), "");
  EXPECT_EQ(nearest_name_hint("PROT", {"HOST", "PORT"}), "; did you mean \"PORT\"?");
  EXPECT_EQ(nearest_name_hint("HOST", {"PORT"}), "");
  EXPECT_EQ(nearest_name_hint("-q", {"-h"}), "");
  EXPECT_EQ(nearest_name_hint("x", {}), "");
}
