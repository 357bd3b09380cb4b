// How far a record's time may lie from now.
#include "tools/emit/skew.h"

#include <gtest/gtest.h>

namespace chrono = std::chrono;

static constexpr chrono::system_clock::time_point now{
    chrono::sys_days(chrono::year(2026) / 11 / 15) + chrono::hours(9)};

static bool is_allowed(chrono::seconds most, const char* time, bool is_late_in_second = false) {
  kp_Time told;
  EXPECT_TRUE(told.set_to_string_value(time)) << time;
  const time_skew skew(most, [is_late_in_second] {
    return now + chrono::milliseconds(is_late_in_second ? 999 : 0);
  });
  return skew.allows(told);
}

TEST(TimeSkew, IsAllowedUpToTheSecond) {
  for (const bool is_late : {false, true}) {
    const auto allowed = [is_late](const char* time) {
      return is_allowed(chrono::seconds(60), time, is_late);
    };
    EXPECT_TRUE(allowed("2026-11-15T08:59:01+00:00"));
    EXPECT_TRUE(allowed("2026-11-15T08:59:00+00:00"));
    EXPECT_FALSE(allowed("2026-11-15T08:58:59+00:00"));
    EXPECT_TRUE(allowed("2026-11-15T09:00:59+00:00"));
    EXPECT_TRUE(allowed("2026-11-15T09:01:00+00:00"));
    EXPECT_FALSE(allowed("2026-11-15T09:01:01+00:00"));
  }
}

TEST(TimeSkew, IsThatOfInstants) {
  EXPECT_TRUE(is_allowed(chrono::seconds(1), "2026-11-15T17:00:01+08:00"));
  EXPECT_FALSE(is_allowed(chrono::hours(8) - chrono::seconds(1), "2026-11-15T09:00:00+08:00"));
}

TEST(TimeSkew, IsReckonedToTheEndsOfTime) {
  constexpr chrono::seconds longest = chrono::hours(24) * 36500;
  for (const char* time : {"0000-01-01T00:00:00+00:00", "1677-01-01T00:00:00+00:00",
                           "2262-12-31T00:00:00+00:00", "9999-12-31T23:59:59+00:00"})
    EXPECT_FALSE(is_allowed(longest, time)) << time;
  EXPECT_TRUE(is_allowed(longest, "1927-01-01T00:00:00+00:00"));
  EXPECT_TRUE(is_allowed(longest, "2126-01-01T00:00:00+00:00"));
}

TEST(TimeSkew, IsAnyWithoutALimit) {
  kp_Time told;
  ASSERT_TRUE(told.set_to_string_value("0000-01-01T00:00:00+00:00"));
  EXPECT_TRUE(time_skew(std::nullopt).allows(told));
}
