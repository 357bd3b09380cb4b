// Cutting texts and escaping their line breaks, apart from an entry.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "logging/logentry_i.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/long_text.h"
#include "tests/support/raised.h"

using entry_t = _kp_LOG_log_entry_imp;

// Runs filter_string on a destination of `size` bytes between two guards and returns the text; a
// byte written outside of the destination fails the test.
static std::string filtered(const std::string& src, int size, bool escape) {
  std::vector<char> room(static_cast<size_t>(size) + 32, '#');
  entry_t::filter_string(src.c_str(), room.data() + 16, size, escape);
  const auto is_guard = [](char c) { return c == '#'; };
  EXPECT_TRUE(std::all_of(room.begin(), room.begin() + 16, is_guard));
  EXPECT_TRUE(std::all_of(room.end() - 16, room.end(), is_guard)) << size;
  return size > 0 ? room.data() + 16 : "";
}

// --- Cutting on its own -------------------------------------------------------------------------

TEST(StringOperations, CuttingRefusesNullArguments) {
  const settings_guard settings;
  const entry_t entry;
  char dst[16];
  const char expected[] = "arguement is null when trucate string!";
  for (unsigned action : {0U, 1U, 2U}) {
    action_on_exceed = action;
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&] { entry.truncate_string(nullptr, "x", 1, dst, 16); }),
              expected);
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&] { entry.truncate_string("A9", nullptr, 1, dst, 16); }),
              expected);
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&] { entry.truncate_mbstring("A9", "x", 1, nullptr, 16); }),
              expected);
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&] { entry.truncate_mbstring(nullptr, "x", 1, dst, 16); }),
              expected);
  }
}

TEST(StringOperations, CuttingIsRefusedByActionZero) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry(17, 0);
  char dst[16];
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_value>(
                [&] { entry.truncate_string("A9", "abc", 2, dst, 16); }),
            overflow_of("A9"));
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_value>(
                [&] { entry.truncate_mbstring("A15", "abc", 2, dst, 16); }),
            overflow_of("A15"));
}

TEST(StringOperations, ABufferThatTheCutFillsIsRefused) {
  const settings_guard settings;
  action_on_exceed = 1;
  const entry_t entry;
  char dst[16];
  for (int size : {3, 2, 0, -1})
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&, size] { entry.truncate_string("A9", "abcd", 3, dst, size); }),
              "The buf length is smaller than cut length!");
  entry.truncate_string("A9", "abcd", 3, dst, 4);
  EXPECT_STREQ(dst, "abc");
}

TEST(StringOperations, ANegativeCutIsRefused) {
  const settings_guard settings;
  action_on_exceed = 1;
  const entry_t entry;
  char dst[16];
  for (int cut : {-1, -2147483647 - 1}) {
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&, cut] { entry.truncate_string("A9", "abcd", cut, dst, 16); }),
              "invalid argument");
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&, cut] { entry.truncate_mbstring("A9", "abcd", cut, dst, 16); }),
              "invalid argument");
  }
}

TEST(StringOperations, AMultibyteCutNeedsRoom) {
  const settings_guard settings;
  action_on_exceed = 1;
  const entry_t entry;
  char dst[16];
  for (int size : {0, -1})
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&, size] { entry.truncate_mbstring("A9", "abcd", 2, dst, size); }),
              "invalid argument");
}

TEST(StringOperations, ATextShorterThanTheCutIsCopiedWhole) {
  const settings_guard settings;
  action_on_exceed = 1;
  const entry_t entry;
  char dst[16];
  entry.truncate_string("A9", "ab", 8, dst, 16);
  EXPECT_STREQ(dst, "ab");
  entry.truncate_mbstring("A9", "abc", 8, dst, 16);
  EXPECT_STREQ(dst, "abc");
}

TEST(StringOperations, AnyOtherActionWritesNothing) {
  const settings_guard settings;
  action_on_exceed = 7;
  const entry_t entry;
  char dst[] = "before";
  entry.truncate_string("A9", "abc", 2, dst, 7);
  entry.truncate_mbstring("A9", "abc", 2, dst, 7);
  EXPECT_STREQ(dst, "before");
}

TEST(StringOperations, AMultibyteCutInAnUnknownCodePageIsRefused) {
  const settings_guard settings;
  const code_page_setting code_page("no-such-code-page");
  action_on_exceed = 1;
  const entry_t entry;
  char dst[16];
  EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                [&] { entry.truncate_mbstring("A9", "abc", 2, dst, 16); }),
            "invalid argument");
}

// The text may fill the size given; its NUL then follows.
TEST(StringOperations, AMultibyteCutNeverWritesBehindItsSizeAndTheNul) {
  const settings_guard settings;
  const code_page_setting code_page("UTF-8");
  action_on_exceed = 1;
  const entry_t entry;
  const std::string src = repeated("\xC3\xA4", 40);
  for (int size = 1; size <= 64; ++size) {
    std::vector<char> room(static_cast<size_t>(size) + 17, '#');
    entry.truncate_mbstring("A15", src.c_str(), 30, room.data(), size);
    EXPECT_EQ(std::string(room.data()), repeated("\xC3\xA4", std::min(size / 2, 30)));
    EXPECT_TRUE(std::all_of(room.begin() + size + 1, room.end(), [](char c) { return c == '#'; }));
  }
}

// --- Filtering on its own -----------------------------------------------------------------------

TEST(StringOperations, FilteringEscapesBothLineBreaks) {
  EXPECT_EQ(filtered("a\nb\rc\\n", 64, true), "a\\nb\\rc\\n");
  EXPECT_EQ(filtered("\r\n", 64, true), "\\r\\n");
  EXPECT_EQ(filtered("", 64, true), "");
}

TEST(StringOperations, UnescapingTakesOnlyThePairsItKnows) {
  EXPECT_EQ(filtered("a\\nb", 64, false), "a\nb");
  EXPECT_EQ(filtered("a\\rb", 64, false), "a\rb");
  EXPECT_EQ(filtered("a\\xb", 64, false), "a\\xb");
  EXPECT_EQ(filtered("\\\\n", 64, false), "\\\n");
  EXPECT_EQ(filtered("end\\", 64, false), "end\\");
  EXPECT_EQ(filtered("\\N\\R", 64, false), "\\N\\R");
  EXPECT_EQ(filtered("", 64, false), "");
}

TEST(StringOperations, ADestinationOfOneByteHoldsTheEmptyText) {
  for (bool escape : {false, true}) EXPECT_EQ(filtered("abc", 1, escape), "");
}

TEST(StringOperations, ADestinationWithoutRoomIsNotTouched) {
  for (int size : {0, -1, -2147483647 - 1}) {
    char dst[] = "##";
    entry_t::filter_string("abc", dst, size, true);
    entry_t::filter_string("abc", dst, size, false);
    EXPECT_STREQ(dst, "##");
  }
}

TEST(StringOperations, FilteringANullTextGivesTheEmptyOne) {
  char dst[] = "##";
  entry_t::filter_string(nullptr, dst, 3, true);
  EXPECT_STREQ(dst, "");
}

TEST(StringOperations, TheSourceIsReadUpToOneLessThanTheSize) {
  EXPECT_EQ(filtered("abcdef", 4, true), "abc");
  EXPECT_EQ(filtered("abcdef", 4, false), "abc");
}

TEST(StringOperations, APairThatNoLongerFitsLeavesItsBackslash) {
  EXPECT_EQ(filtered("a\nb", 4, true), "a\\n");
  EXPECT_EQ(filtered("ab\nc", 4, true), "ab\\");
  EXPECT_EQ(filtered("\n\n", 4, true), "\\n\\");
  EXPECT_EQ(filtered("\nab", 4, true), "\\na");
  EXPECT_EQ(filtered("\nab", 5, true), "\\nab");
}

TEST(StringOperations, UnescapingEndsWithTheDestination) {
  EXPECT_EQ(filtered("\\n\\n\\n\\n", 4, false), "\n\n\n");
  EXPECT_EQ(filtered("ab\\nc", 4, false), "ab\n");
}

static std::vector<int> boundary_sizes() {
  std::vector<int> sizes;
  for (int size = 1; size <= 64; ++size) sizes.push_back(size);
  for (int size = 8090; size <= 8100; ++size) sizes.push_back(size);
  return sizes;
}

TEST(StringOperations, EscapingNeverPassesTheDestination) {
  const std::string sources[] = {repeated("\n", 9000), repeated("a\n", 4600), repeated("x", 9000),
                                 repeated("ab\r", 3000)};
  for (const std::string& src : sources) {
    std::string escaped;
    for (char c : src) escaped += c == '\n' ? "\\n" : c == '\r' ? "\\r" : std::string(1, c);
    for (int size : boundary_sizes())
      EXPECT_EQ(filtered(src, size, true), escaped.substr(0, static_cast<size_t>(size - 1)));
  }
}

TEST(StringOperations, UnescapingNeverPassesTheDestination) {
  const std::string src = repeated("a\\n\\", 9000);
  const std::string plain = repeated("a\n\\", 9000);
  for (int size : boundary_sizes())
    EXPECT_EQ(filtered(src, size, false), plain.substr(0, static_cast<size_t>(size - 1)));
}

TEST(StringOperations, WhatIsEscapedIsReadBackByUnescaping) {
  const std::string text = "first\r\nsecond\n\nlast\r";
  EXPECT_EQ(filtered(filtered(text, 256, true), 256, false), text);
}
