#include "tools/find/moment.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "tests/support/zone_setting.h"

namespace chrono = std::chrono;

// 2026-11-15 17:02:56 in Singapore.
static constexpr chrono::system_clock::time_point now{
    chrono::sys_days(chrono::year(2026) / 11 / 15) + chrono::hours(9) + chrono::minutes(2) +
    chrono::seconds(56)};

static std::string moment(const std::string& text, moment_edge edge = moment_edge::first) {
  std::array<char, 64> shown;
  moment_of(text, edge, now).print_out(shown.data(), static_cast<unsigned>(shown.size()));
  return shown.data();
}

TEST(Moment, TimesAreThoseOfRecords) {
  const zone_setting zone("Asia/Singapore");
  EXPECT_EQ(moment("2026-11-15T17:02:56+02:00"), "2026-11-15T17:02:56+02:00");
  EXPECT_EQ(moment("2026-11-15T17:02:56Z"), "2026-11-15T17:02:56Z");
  EXPECT_EQ(moment("2026-11-15 17:02:56"), "2026-11-15T17:02:56+08:00");
  EXPECT_EQ(moment("now"), "2026-11-15T17:02:56+08:00");
}

TEST(Moment, DaysBeginWithTheirFirstSecondAndEndWithTheirLast) {
  const zone_setting zone("Asia/Singapore");
  EXPECT_EQ(moment("2026-02-28"), "2026-02-28T00:00:00+08:00");
  EXPECT_EQ(moment("2026-02-28", moment_edge::last), "2026-02-28T23:59:59+08:00");
  EXPECT_EQ(moment("today"), "2026-11-15T00:00:00+08:00");
  EXPECT_EQ(moment("today", moment_edge::last), "2026-11-15T23:59:59+08:00");
  EXPECT_EQ(moment("yesterday"), "2026-11-14T00:00:00+08:00");
  EXPECT_EQ(moment("yesterday", moment_edge::last), "2026-11-14T23:59:59+08:00");
  EXPECT_EQ(moment("2026-02-28T10:00:00Z", moment_edge::last), "2026-02-28T10:00:00Z");
}

TEST(Moment, DaysAreThoseOfTheZoneOfTheMachine) {
  const zone_setting zone("America/New_York");
  EXPECT_EQ(moment("today"), "2026-11-15T00:00:00-05:00");
  EXPECT_EQ(moment("2026-07-01"), "2026-07-01T00:00:00-04:00");
}

TEST(Moment, SpansAgoAreTakenFromNow) {
  const zone_setting zone("Asia/Singapore");
  EXPECT_EQ(moment("2 hours ago"), "2026-11-15T15:02:56+08:00");
  EXPECT_EQ(moment("1 hour ago"), "2026-11-15T16:02:56+08:00");
  EXPECT_EQ(moment("90s ago"), "2026-11-15T17:01:26+08:00");
  EXPECT_EQ(moment("5 minutes ago"), "2026-11-15T16:57:56+08:00");
  EXPECT_EQ(moment("3 d ago"), "2026-11-12T17:02:56+08:00");
  EXPECT_EQ(moment("2 weeks ago"), "2026-11-01T17:02:56+08:00");
}

TEST(Moment, AnyOtherTextIsRefused) {
  for (const std::string text :
       {"", "tomorrow", "2 hours", "hours ago", "-2 hours ago", "2 months ago", "36501 days ago",
        "99999999999 s ago", "2026-13-01", "2026-11-15T25:00:00", "2026-11-15T17:02:56.5", " ago"})
    EXPECT_THROW(moment_of(text, moment_edge::last, now), std::invalid_argument) << text;
  EXPECT_THROW(moment_of(std::string("2026-11-15\0", 11), moment_edge::first, now),
               std::invalid_argument);
}
