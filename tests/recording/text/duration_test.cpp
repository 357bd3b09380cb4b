#include "recording/text/duration.h"

#include <gtest/gtest.h>

TEST(Duration, IsANumberAndItsUnit) {
  EXPECT_EQ(duration_of("30s"), std::chrono::seconds(30));
  EXPECT_EQ(duration_of("5m"), std::chrono::seconds(300));
  EXPECT_EQ(duration_of("12h"), std::chrono::seconds(43200));
  EXPECT_EQ(duration_of("90d"), std::chrono::seconds(7776000));
  EXPECT_EQ(duration_of("007s"), std::chrono::seconds(7));
}

TEST(Duration, IsToldInTheLargestUnit) {
  for (const char* text : {"1s", "59s", "61s", "1m", "90m", "23h", "25h", "1d", "36500d"})
    EXPECT_EQ(duration_text(duration_of(text).value()), text);
  EXPECT_EQ(duration_text(std::chrono::seconds(86400)), "1d");
  EXPECT_EQ(duration_text(std::chrono::seconds(7200)), "2h");
}

TEST(Duration, AnythingElseIsNone) {
  for (const char* text : {"", "s", "d", "5", "-5s", "+5s", "1.5h", "5 m", "5ms", " 5s", "5s ",
                           "5w", "5S", "0s", "0d", "h5", "5s5s"})
    EXPECT_FALSE(duration_of(text)) << text;
}

TEST(Duration, HundredYearsAreTheMost) {
  EXPECT_EQ(duration_of("36500d"), std::chrono::seconds(3153600000));
  EXPECT_EQ(duration_of("876000h"), duration_of("36500d"));
  EXPECT_EQ(duration_of("52560000m"), duration_of("36500d"));
  EXPECT_EQ(duration_of("3153600000s"), duration_of("36500d"));
  for (const char* text : {"36501d", "876001h", "52560001m", "3153600001s", "4294967296s",
                           "4294967297d", "99999999999999999999d"})
    EXPECT_FALSE(duration_of(text)) << text;
}
