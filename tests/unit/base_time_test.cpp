#include "base/kp_time.h"

#include <gtest/gtest.h>
#include <time.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>

#include "tests/support/failing.h"
#include "tests/support/temp_folder.h"
#include "tests/unit/time_zone_cases.h"

static std::string print_out_of(const kp_Time& t) {
  char buffer[64];
  t.print_out(buffer, sizeof buffer);
  return buffer;
}

static std::string printed_in_gmt(kp_Time t) {
  t.local_to_GMT();
  return print_out_of(t);
}

static kp_Time gmt_time(time_t moment) {
  struct tm fields = {};
  gmtime_r(&moment, &fields);
  return {fields.tm_year + 1900,
          fields.tm_mon + 1,
          fields.tm_mday,
          fields.tm_hour,
          fields.tm_min,
          fields.tm_sec,
          true};
}

// ---- zones ----

TEST(TimeZone, LocalMomentTakesTheSystemsBiasAndFlag) {
  for (const zone_case& c : zone_cases) {
    const environment_value zone("TZ", c.zone);
    const kp_Time t(2026, c.month, 15, 12, 0, 0);
    EXPECT_EQ(t.get_zone_bias(), c.bias) << c.local;
    EXPECT_EQ(t.get_daylight_flag(), c.daylight) << c.local;
    EXPECT_EQ(print_out_of(t), c.local) << c.zone;
    EXPECT_EQ(printed_in_gmt(t), c.gmt) << c.zone;
  }
}

TEST(TimeZone, GmtMomentTakesTheSystemsBiasAndFlagAndConvertsToLocal) {
  for (const zone_case& c : zone_cases) {
    const environment_value zone("TZ", c.zone);
    kp_Time t;
    ASSERT_TRUE(t.set_to_string_value(c.gmt));
    EXPECT_EQ(t.get_zone_bias(), c.bias) << c.gmt;
    t.GMT_to_local();
    EXPECT_EQ(print_out_of(t), c.local) << c.zone;
  }
}

TEST(TimeZone, LocalTimeShownTwiceIsTheFirstShowing) {
  const environment_value zone("TZ", "Europe/Berlin");
  EXPECT_EQ(printed_in_gmt(kp_Time(2026, 10, 25, 2, 30, 0)), "2026-10-25T00:30:00Z");
  EXPECT_EQ(printed_in_gmt(kp_Time(2026, 10, 25, 3, 0, 0)), "2026-10-25T02:00:00Z");
}

TEST(TimeZone, LocalTimeThatClocksSkipIsReadWithTheZoneBefore) {
  const environment_value zone("TZ", "Europe/Berlin");
  EXPECT_EQ(printed_in_gmt(kp_Time(2026, 3, 29, 2, 30, 0)), "2026-03-29T01:30:00Z");
  EXPECT_EQ(printed_in_gmt(kp_Time(2026, 3, 29, 1, 59, 59)), "2026-03-29T00:59:59Z");
  EXPECT_EQ(printed_in_gmt(kp_Time(2026, 3, 29, 3, 0, 0)), "2026-03-29T01:00:00Z");
}

#ifdef KP_FAULTS
TEST(TimeZone, ZoneThatTheSystemCannotTellIsGmt) {
  const environment_value zone("TZ", "Asia/Shanghai");
  const failing fault(kp_fault_call::localtime_r, 1, EOVERFLOW, from_then_on);
  const kp_Time t(2026, 7, 15, 12, 0, 0);
  EXPECT_EQ(print_out_of(t), "2026-07-15T12:00:00+00:00");
}
#endif

// ---- the current time ----

TEST(TimeNow, IsLocalAndBetweenTheClockBeforeAndAfter) {
  for (const zone_case& c : zone_cases) {
    const environment_value zone("TZ", c.zone);
    const kp_Time before = gmt_time(time(nullptr));
    const kp_Time now;
    const kp_Time after = gmt_time(time(nullptr));
    EXPECT_FALSE(now.is_GMT_time_mode());
    EXPECT_GE(now.compare_time(before), 0) << c.zone;
    EXPECT_LE(now.compare_time(after), 0) << c.zone;
  }
}

TEST(TimeNow, HasTheZoneOfThatMoment) {
  const environment_value zone("TZ", "Europe/Berlin");
  kp_Time now;
  kp_Time in_gmt = now;
  in_gmt.local_to_GMT();
  kp_Time same_moment;
  ASSERT_TRUE(same_moment.set_to_string_value(print_out_of(in_gmt).c_str()));
  EXPECT_EQ(now.get_zone_bias(), same_moment.get_zone_bias());
  EXPECT_EQ(now.get_daylight_flag(), same_moment.get_daylight_flag());
}

TEST(TimeNow, ChangeOfTheSystemsZoneShowsAtOnce) {
  for (int round = 0; round < 3; ++round) {
    {
      const environment_value zone("TZ", "UTC");
      EXPECT_EQ(kp_Time().get_zone_bias(), 0);
    }
    const environment_value zone("TZ", "Asia/Shanghai");
    EXPECT_EQ(kp_Time().get_zone_bias(), -480);
  }
}

TEST(TimeNow, EveryThreadSeesTheSameZone) {
  const environment_value zone("TZ", "America/St_Johns");
  short bias = 0;
  std::thread([&bias] { bias = kp_Time().get_zone_bias(); }).join();
  EXPECT_EQ(bias, kp_Time().get_zone_bias());
  EXPECT_EQ(bias, 210);
}

#ifdef KP_FAULTS
// Runs `work` within one second, and again when the clock has reached the next one meanwhile.
template <class Work>
static void within_one_second(Work work) {
  time_t second = 0;
  do {
    second = time(nullptr);
    work();
  } while (time(nullptr) != second);
}

TEST(TimeNow, AsksTheSystemForItsZoneOnceASecond) {
  unsigned calls_seen = 0;
  within_one_second([&] {
    const environment_value zone("TZ", "UTC");
    const failing calls(kp_fault_call::localtime_r, 0, 0);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(kp_Time().get_zone_bias(), 0);
    calls_seen = calls.calls_seen();
  });
  EXPECT_EQ(calls_seen, 1U);
}

// A zone whose daylight time begins in the middle of the given minute of this year.
static std::string zone_changing_in(time_t minute) {
  struct tm fields = {};
  gmtime_r(&minute, &fields);
  char zone[64];
  snprintf(zone, sizeof zone, "AAA0BBB,%d/%d:%02d:30,%d/0", fields.tm_yday, fields.tm_hour,
           fields.tm_min, (fields.tm_yday + 100) % 365);
  return zone;
}

TEST(TimeNow, InAMinuteThatChangesTheZoneEachSecondHasItsOwn) {
  within_one_second([&] {
    const environment_value zone("TZ", zone_changing_in(time(nullptr) / 60 * 60).c_str());
    for (int i = 0; i < 3; ++i) {
      const kp_Time now;
      EXPECT_EQ(now.get_zone_bias(), 0);
      EXPECT_EQ(now.get_daylight_flag(), now.get_second() >= 30 ? 1 : 0);
    }
  });
}

TEST(TimeNow, FromMemoryIsWhatTheSystemTells) {
  for (const zone_case& c : zone_cases) {
    const environment_value zone("TZ", c.zone);
    static_cast<void>(kp_Time());
    const time_t before = time(nullptr);
    const kp_Time remembered;
    if (time(nullptr) != before) continue;
    struct tm told = {};
    localtime_r(&before, &told);
    char expected[64];
    strftime(expected, sizeof expected, "%Y-%m-%dT%H:%M:%S%z", &told);
    std::string shown = print_out_of(remembered);
    shown.erase(shown.size() - 3, 1);  // the colon in the offset
    EXPECT_EQ(shown, expected) << c.zone;
    EXPECT_EQ(remembered.get_daylight_flag(), told.tm_isdst) << c.zone;
  }
}

TEST(TimeNow, AZoneOfTheSameOffsetThatKnowsDaylightTimeIsNoticedAtOnce) {
  unsigned calls_seen = 0;
  short ahead = 0;
  within_one_second([&] {
    const environment_value plain("TZ", "AAA5");
    static_cast<void>(kp_Time());
    const environment_value always_ahead("TZ", "AAA5BBB,0/0,J365/25");
    const failing calls(kp_fault_call::localtime_r, 0, 0);
    ahead = kp_Time().get_daylight_flag();
    calls_seen = calls.calls_seen();
  });
  EXPECT_EQ(ahead, 1);
  EXPECT_EQ(calls_seen, 1U);
}

TEST(TimeNow, EveryThreadAsksTheSystemForItself) {
  unsigned first = 0;
  unsigned second = 0;
  within_one_second([&] {
    const environment_value zone("TZ", "Asia/Shanghai");
    static_cast<void>(kp_Time());
    const failing calls(kp_fault_call::localtime_r, 0, 0);
    const auto three_times = [] {
      for (int i = 0; i < 3; ++i) EXPECT_EQ(kp_Time().get_zone_bias(), -480);
    };
    std::thread(three_times).join();
    first = calls.calls_seen();
    three_times();
    second = calls.calls_seen();
  });
  EXPECT_EQ(first, 1U);
  EXPECT_EQ(second, 1U);
}
#endif

// The zone that the C library has for the moment, not one that was remembered.
static void expect_the_moments_zone(const std::string& zone, const std::string& before) {
  const time_t moment = time(nullptr);
  const kp_Time now;
  if (time(nullptr) != moment) return expect_the_moments_zone(zone, before);
  struct tm told = {};
  localtime_r(&moment, &told);
  const long offset = (now.get_daylight_flag() != 0 ? 60 : 0) - now.get_zone_bias();
  EXPECT_EQ(offset, told.tm_gmtoff / 60) << zone << " after " << before;
  EXPECT_EQ(now.get_daylight_flag(), told.tm_isdst) << zone << " after " << before;
}

TEST(TimeNow, AZoneWithOtherNamesIsNoticedAtOnce) {
  const std::string halifax = "America/Halifax", santiago = "America/Santiago";
  for (int round = 0; round < 3; ++round) {
    {
      const environment_value zone("TZ", halifax.c_str());
      expect_the_moments_zone(halifax, santiago);
    }
    const environment_value zone("TZ", santiago.c_str());
    expect_the_moments_zone(santiago, halifax);
  }
}

// Pairs that the C library's variables do not tell apart, in one season or the other: in a process
// of its own that has no other thread, where the environment may be read.
static void change_between_zones_of_one_offset_and_names() {
  const char* const pairs[][2] = {{"Australia/Melbourne", "Australia/Brisbane"},
                                  {"Pacific/Norfolk", "Pacific/Noumea"},
                                  {"Pacific/Easter", "Pacific/Galapagos"},
                                  {"America/Los_Angeles", "America/Whitehorse"},
                                  {"EST5EDT", "America/Jamaica"},
                                  {"AAA5BBB,J1/0,J365/25", "AAA5BBB,J364/0,J365/0"},
                                  {"AAA5BBB,J364/0,J365/0", "AAA5BBB,J1/0,J365/25"}};
  for (const auto& pair : pairs)
    for (int i = 0; i < 4; ++i) {
      setenv("TZ", pair[i % 2], 1);
      tzset();
      expect_the_moments_zone(pair[i % 2], pair[1 - i % 2]);
    }
  unsetenv("TZ");
  tzset();
  expect_the_moments_zone("the machine's", "EST5EDT");
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(TimeNowDeathTest, AZoneOfTheSameOffsetAndNamesIsNoticedAtOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(change_between_zones_of_one_offset_and_names(), testing::ExitedWithCode(0), "");
}

// ---- moments of the system's clock ----

TEST(Time, SecondsAreToldInGMTWhateverTheZone) {
  const environment_value zone("TZ", "Asia/Tokyo");
  for (const long long seconds : {0LL, -1LL, 86399LL, 951782400LL, 1795340327LL, 9223372036LL}) {
    const kp_Time time = kp_Time::in_GMT(seconds);
    EXPECT_TRUE(time.is_GMT_time_mode());
    EXPECT_EQ(time.get_zone_bias(), 0);
    EXPECT_EQ(time.get_daylight_flag(), 0);
    const std::chrono::sys_seconds moment{std::chrono::seconds(seconds)};
    const std::chrono::year_month_day date(std::chrono::floor<std::chrono::days>(moment));
    EXPECT_EQ(time.get_year(), static_cast<int>(date.year()));
    EXPECT_EQ(time.get_month(), static_cast<unsigned>(date.month()));
    EXPECT_EQ(time.get_day(), static_cast<unsigned>(date.day()));
    EXPECT_EQ(time.get_second(), (seconds % 60 + 60) % 60);
    EXPECT_EQ(time.compare_time(kp_Time(moment)), 0);
  }
}

using clock_point = std::chrono::system_clock::time_point;

TEST(TimeOfTheClock, IsToldInLocalTimeWithTheZoneOfTheMoment) {
  for (const zone_case& c : zone_cases) {
    const environment_value zone("TZ", c.zone);
    kp_Time in_gmt;
    ASSERT_TRUE(in_gmt.set_to_string_value(c.gmt));
    const kp_Time t(in_gmt.to_time_point());
    EXPECT_FALSE(t.is_GMT_time_mode());
    EXPECT_EQ(print_out_of(t), c.local) << c.zone;
    EXPECT_EQ(t.get_zone_bias(), c.bias) << c.zone;
    EXPECT_EQ(t.get_daylight_flag(), c.daylight) << c.zone;
    EXPECT_EQ(t.to_time_point(), in_gmt.to_time_point()) << c.zone;
  }
}

TEST(TimeOfTheClock, DropsTheFractionOfASecondAlsoBeforeTheEpoch) {
  using namespace std::chrono_literals;
  for (const int second : {-100000, -1, 0, 1, 1795000000}) {
    const clock_point whole{std::chrono::seconds(second)};
    for (const auto fraction : {0ns, 1ns, 999999999ns})
      EXPECT_EQ(kp_Time(whole + fraction).to_time_point(), whole) << second;
  }
}

TEST(TimeOfTheClock, IsReadBackFromEveryModeAndZone) {
  kp_Time t(2026, 11, 15, 17, 2, 56, true);
  const std::time_t expected = 1794762176;
  EXPECT_EQ(std::chrono::system_clock::to_time_t(t.to_time_point()), expected);
  t.set_zone_bias(-480);
  t.set_daylight_flag(1);
  t.GMT_to_local();
  EXPECT_EQ(std::chrono::system_clock::to_time_t(t.to_time_point()), expected);
}

TEST(TimeOfTheClock, BeyondItsRangeIsTheNearestMoment) {
  EXPECT_EQ(kp_Time(2263, 1, 1, 0, 0, 0, true).to_time_point(), clock_point::max());
  EXPECT_EQ(kp_Time(65535, 12, 31, 23, 59, 59, true).to_time_point(), clock_point::max());
  EXPECT_EQ(kp_Time(1677, 1, 1, 0, 0, 0, true).to_time_point(), clock_point::min());
  EXPECT_EQ(kp_Time(0, 1, 1, 0, 0, 0, true).to_time_point(), clock_point::min());
}

// ---- fields and modes ----

TEST(Time, FieldsAreTakenAsGiven) {
  const kp_Time t(2026, 11, 15, 17, 2, 56, true);
  EXPECT_TRUE(t.is_GMT_time_mode());
  EXPECT_EQ(t.get_year(), 2026);
  EXPECT_EQ(t.get_month(), 11);
  EXPECT_EQ(t.get_day(), 15);
  EXPECT_EQ(t.get_hour(), 17);
  EXPECT_EQ(t.get_minute(), 2);
  EXPECT_EQ(t.get_second(), 56);
}

TEST(Time, FieldsBeyond16BitsStopAtTheirEnds) {
  const kp_Time t(-5, 70000, -1, 1 << 30, 1, 1, true);
  EXPECT_EQ(t.get_year(), 0);
  EXPECT_EQ(t.get_month(), 65535);
  EXPECT_EQ(t.get_day(), 0);
  EXPECT_EQ(t.get_hour(), 65535);
}

TEST(Time, ZeroIsTheEpochInGmt) {
  kp_Time t;
  t.set_zero();
  EXPECT_EQ(print_out_of(t), "1970-01-01T00:00:00Z");
  EXPECT_EQ(t.get_zone_bias(), 0);
  EXPECT_EQ(t.get_daylight_flag(), 0);
}

TEST(Time, SettingTheModeConvertsNothing) {
  kp_Time t(2026, 11, 15, 17, 2, 56);
  t.set_zone_bias(-480);
  t.set_daylight_flag(0);
  t.set_GMT_time_mode(true);
  EXPECT_EQ(print_out_of(t), "2026-11-15T17:02:56Z");
  t.set_GMT_time_mode(false);
  EXPECT_EQ(print_out_of(t), "2026-11-15T17:02:56+08:00");
}

TEST(Time, ConvertingTwiceDoesNothingMore) {
  kp_Time t(2026, 11, 15, 17, 2, 56);
  t.set_zone_bias(-480);
  t.set_daylight_flag(0);
  t.local_to_GMT();
  t.local_to_GMT();
  EXPECT_EQ(print_out_of(t), "2026-11-15T09:02:56Z");
  t.GMT_to_local();
  t.GMT_to_local();
  EXPECT_EQ(print_out_of(t), "2026-11-15T17:02:56+08:00");
}

TEST(Time, AnyDaylightFlagButZeroIsOneHour) {
  kp_Time t(2026, 1, 1, 0, 30, 0);
  t.set_zone_bias(0);
  t.set_daylight_flag(-7);
  EXPECT_EQ(printed_in_gmt(t), "2025-12-31T23:30:00Z");
}

TEST(Time, ConversionCrossesLeapDaysAndYears) {
  kp_Time t(2024, 3, 1, 1, 0, 0);
  t.set_zone_bias(-120);
  t.set_daylight_flag(0);
  EXPECT_EQ(printed_in_gmt(t), "2024-02-29T23:00:00Z");
  kp_Time century(1900, 3, 1, 1, 0, 0);
  century.set_zone_bias(-120);
  century.set_daylight_flag(0);
  EXPECT_EQ(printed_in_gmt(century), "1900-02-28T23:00:00Z");
}

TEST(Time, ConversionStopsAtTheEndsOfTheCalendar) {
  kp_Time first(0, 1, 1, 0, 0, 0);
  first.set_zone_bias(-480);
  first.set_daylight_flag(0);
  EXPECT_EQ(printed_in_gmt(first), "0000-01-01T00:00:00Z");
  kp_Time last(65535, 12, 31, 23, 59, 59);
  last.set_zone_bias(480);
  last.set_daylight_flag(0);
  EXPECT_EQ(printed_in_gmt(last), "65535-12-31T23:59:59Z");
}

// A day forward each step, by a zone of a whole day, from 1970 for 400 years.
TEST(Time, CalendarAgreesWithTheCLibraryDayByDay) {
  kp_Time t;
  t.set_zero();
  t.set_zone_bias(-1440);
  for (time_t day = 0; day < 146097; ++day) {
    ASSERT_EQ(t.compare_time(gmt_time(day * 86400)), 0) << print_out_of(t);
    ASSERT_EQ(print_out_of(t), print_out_of(gmt_time(day * 86400)));
    t.GMT_to_local();
    t.set_GMT_time_mode(true);
  }
}

TEST(Time, ComparesInstantsAcrossZonesAndModes) {
  kp_Time shanghai, berlin, gmt, later;
  ASSERT_TRUE(shanghai.set_to_string_value("2026-11-15T17:02:56+08:00"));
  ASSERT_TRUE(berlin.set_to_string_value("2026-11-15T10:02:56+01:00"));
  ASSERT_TRUE(gmt.set_to_string_value("2026-11-15T09:02:56Z"));
  ASSERT_TRUE(later.set_to_string_value("2026-11-15T09:02:57Z"));
  EXPECT_EQ(shanghai.compare_time(berlin), 0);
  EXPECT_EQ(shanghai.compare_time(gmt), 0);
  EXPECT_LT(shanghai.compare_time(later), 0);
  EXPECT_GT(later.compare_time(berlin), 0);
}
