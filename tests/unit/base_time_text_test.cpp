// kp_Time as text, and out of it.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "base/kp_time.h"
#include "tests/support/temp_folder.h"
#include "tests/unit/time_zone_cases.h"

static std::string print_out_of(const kp_Time& t) {
  char buffer[64];
  t.print_out(buffer, sizeof buffer);
  return buffer;
}

// ---- printing ----

TEST(TimePrinting, DateAndTimeOfDay) {
  const kp_Time t(2026, 1, 5, 7, 2, 6, true);
  char buffer[32];
  t.print_date_out(buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "2026-01-05");
  t.print_time_out(buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "07:02:06");
}

TEST(TimePrinting, NeverWritesMoreThanTheSizeAndAlwaysTerminates) {
  const kp_Time t(2026, 1, 5, 7, 2, 6, true);
  const std::string whole = "2026-01-05T07:02:06Z";
  for (unsigned size = 1; size < 30; ++size) {
    std::string buffer(40, '#');
    t.print_out(buffer.data(), size);
    EXPECT_EQ(std::string(buffer.c_str()), whole.substr(0, size - 1));
    EXPECT_EQ(buffer.substr(size), std::string(40 - size, '#'));
  }
}

TEST(TimePrinting, SizeZeroWritesNothing) {
  const kp_Time t(2026, 1, 5, 7, 2, 6, true);
  char buffer[] = "kept";
  t.print_out(buffer, 0);
  t.print_date_out(buffer, 0);
  t.print_time_out(nullptr, 0);
  EXPECT_STREQ(buffer, "kept");
}

TEST(TimePrinting, LargestFieldsAndOffsetsFit) {
  kp_Time t(65535, 65535, 65535, 65535, 65535, 65535);
  t.set_zone_bias(32767);
  t.set_daylight_flag(0);
  EXPECT_EQ(print_out_of(t), "65535-65535-65535T65535:65535:65535-546:07");
  t.set_zone_bias(-32768);
  t.set_daylight_flag(1);
  EXPECT_EQ(print_out_of(t), "65535-65535-65535T65535:65535:65535+547:08");
}

TEST(TimePrinting, IsThatOfPrintf) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto field = [&] { return static_cast<int>((random() & 0xffffU) >> (random() % 16)); };
  for (int i = 0; i < 3000; ++i) {
    kp_Time t(field(), field(), field(), field(), field(), field());
    t.set_zone_bias(static_cast<short>(random()));
    char printed[80];
    static_cast<void>(std::snprintf(printed, sizeof printed, "%04u-%02u-%02uT%02u:%02u:%02u",
                                    unsigned{t.get_year()}, unsigned{t.get_month()},
                                    unsigned{t.get_day()}, unsigned{t.get_hour()},
                                    unsigned{t.get_minute()}, unsigned{t.get_second()}));
    const int offset = (t.get_daylight_flag() != 0 ? 60 : 0) - t.get_zone_bias();
    char zone[32];
    static_cast<void>(std::snprintf(zone, sizeof zone, "%c%02d:%02d", offset < 0 ? '-' : '+',
                                    std::abs(offset) / 60, std::abs(offset) % 60));
    ASSERT_EQ(print_out_of(t), std::string(printed) + zone);
  }
}

// ---- reading ----

TEST(TimeReading, OffsetGivesLocalModeWithItsBiasAndNoDaylight) {
  kp_Time t;
  ASSERT_TRUE(t.set_to_string_value("2026-11-15T17:02:56+08:00"));
  EXPECT_FALSE(t.is_GMT_time_mode());
  EXPECT_EQ(t.get_zone_bias(), -480);
  EXPECT_EQ(t.get_daylight_flag(), 0);
  EXPECT_EQ(print_out_of(t), "2026-11-15T17:02:56+08:00");
}

TEST(TimeReading, OffsetWestIsAPositiveBias) {
  kp_Time t;
  ASSERT_TRUE(t.set_to_string_value("2026-11-15T17:02:56-03:30"));
  EXPECT_EQ(t.get_zone_bias(), 210);
  EXPECT_EQ(print_out_of(t), "2026-11-15T17:02:56-03:30");
}

TEST(TimeReading, ZGivesGmtModeWithTheSystemsZone) {
  const environment_value zone("TZ", "Europe/Berlin");
  kp_Time t;
  ASSERT_TRUE(t.set_to_string_value("2026-07-15T10:00:00Z"));
  EXPECT_TRUE(t.is_GMT_time_mode());
  EXPECT_EQ(t.get_zone_bias(), -60);
  EXPECT_EQ(t.get_daylight_flag(), 1);
}

TEST(TimeReading, WithoutAZoneItIsTheSystems) {
  const environment_value zone("TZ", "Asia/Shanghai");
  kp_Time t;
  ASSERT_TRUE(t.set_to_string_value("2026-11-15T17:02:56"));
  EXPECT_EQ(print_out_of(t), "2026-11-15T17:02:56+08:00");
}

TEST(TimeReading, DateAloneIsLocalMidnight) {
  const environment_value zone("TZ", "Asia/Shanghai");
  kp_Time t;
  ASSERT_TRUE(t.set_to_string_value("2026-11-15"));
  EXPECT_EQ(print_out_of(t), "2026-11-15T00:00:00+08:00");
}

TEST(TimeReading, BlankStandsForTheT) {
  kp_Time t;
  ASSERT_TRUE(t.set_to_string_value("2026-11-15 17:02:56Z"));
  EXPECT_EQ(print_out_of(t), "2026-11-15T17:02:56Z");
}

TEST(TimeReading, LeapDaysOfLeapYearsOnly) {
  kp_Time t;
  EXPECT_TRUE(t.set_to_string_value("2024-02-29"));
  EXPECT_TRUE(t.set_to_string_value("2000-02-29"));
  EXPECT_FALSE(t.set_to_string_value("2026-02-29"));
  EXPECT_FALSE(t.set_to_string_value("1900-02-29"));
}

TEST(TimeReading, AnythingElseIsRefusedAndLeavesTheTime) {
  const char* const refused[] = {"",
                                 " ",
                                 "2026",
                                 "2026-11",
                                 "2026-11-",
                                 "2026-11-1",
                                 "2026-1-15",
                                 "26-11-15",
                                 "12026-11-15",
                                 "+026-11-15",
                                 "2026-00-15",
                                 "2026-13-15",
                                 "2026-11-00",
                                 "2026-11-31",
                                 "2026-12-32",
                                 "2026/11/15",
                                 " 2026-11-15",
                                 "2026-11-15 ",
                                 "2026-11-15T",
                                 "2026-11-15T17",
                                 "2026-11-15T17:02",
                                 "2026-11-15T17:02:",
                                 "2026-11-15T17:02:5",
                                 "2026-11-15t17:02:56",
                                 "2026-11-15T24:00:00",
                                 "2026-11-15T17:60:00",
                                 "2026-11-15T17:02:60",
                                 "2026-11-15T17:02:56z",
                                 "2026-11-15T17:02:56ZZ",
                                 "2026-11-15T17:02:56Z ",
                                 "2026-11-15T17:02:56+",
                                 "2026-11-15T17:02:56+08",
                                 "2026-11-15T17:02:56+0800",
                                 "2026-11-15T17:02:56+8:00",
                                 "2026-11-15T17:02:56+24:00",
                                 "2026-11-15T17:02:56+08:60",
                                 "2026-11-15T17:02:56+08:001",
                                 "2026-11-15T17:02:56.5",
                                 "2026-11-15Z",
                                 "2026-11-15T-1:02:56",
                                 "2026-11-15T17:02:56\n"};
  kp_Time t(2001, 2, 3, 4, 5, 6, true);
  for (const char* text : refused) EXPECT_FALSE(t.set_to_string_value(text)) << text;
  EXPECT_FALSE(t.set_to_string_value(nullptr));
  EXPECT_EQ(print_out_of(t), "2001-02-03T04:05:06Z");
}

TEST(TimeReading, ReadsWhateverPrintOutWrites) {
  for (const zone_case& c : zone_cases) {
    kp_Time local, gmt;
    ASSERT_TRUE(local.set_to_string_value(c.local));
    ASSERT_TRUE(gmt.set_to_string_value(c.gmt));
    EXPECT_EQ(print_out_of(local), c.local);
    EXPECT_EQ(print_out_of(gmt), c.gmt);
    EXPECT_EQ(local.compare_time(gmt), 0);
  }
}
