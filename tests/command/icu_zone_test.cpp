// The time zone of messages is the C library's.
#include "tools/command/icu_zone.h"

#include <gtest/gtest.h>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>

#include <ctime>
#include <string>

#include "tests/command/command_run.h"
#include "tests/support/icu_setting.h"
#include "tests/support/temp_folder.h"

static std::string told_by_icu(time_t moment, const char* pattern) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::SimpleDateFormat format(pattern, icu::Locale::getUS(), status);
  icu::UnicodeString text;
  std::string utf8;
  return format.format(static_cast<double>(moment) * 1000, text).toUTF8String(utf8);
}

static std::string told_by_the_c_library(time_t moment) {
  struct tm told = {};
  localtime_r(&moment, &told);
  char text[64];
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &told);
  return text;
}

static void expect_equal_times(const std::string& zone) {
  constexpr time_t day = 86400;
  for (time_t moment = -30 * 365 * day; moment < 80 * 365 * day; moment += 97 * day + 5003)
    ASSERT_EQ(told_by_icu(moment, "yyyy-MM-dd HH:mm:ss xx"), told_by_the_c_library(moment)) << zone;
}

static const char* const zones[] = {"CET-1CEST,M3.5.0,M10.5.0/3", "<+0330>-3:30", "UTC",
                                    "Europe/Berlin", "AEST-10AEDT,M10.1.0,M4.1.0/3"};

TEST(IcuZone, IsTheOneOfTheCLibrary) {
  const icu_zone_setting before("UTC");
  for (const char* zone : zones) {
    const environment_value setting("TZ", zone);
    use_zone_of_c_library();
    expect_equal_times(zone);
  }
}

TEST(IcuZone, FollowsTheCLibraryWhenItChanges) {
  const icu_zone_setting before("UTC");
  use_zone_of_c_library();
  for (const char* zone : zones) {
    const environment_value setting("TZ", zone);
    expect_equal_times(zone);
  }
}

TEST(IcuZone, HasTheNamesOfAZoneThatIcuKnows) {
  const icu_zone_setting before("UTC");
  const environment_value setting("TZ", "Europe/Berlin");
  use_zone_of_c_library();
  EXPECT_EQ(told_by_icu(1780000000, "zzzz"), "Central European Summer Time");
}

TEST(IcuZone, FindsTheOffsetOfLocalFields) {
  const icu_zone_setting before("UTC");
  for (const char* zone : zones) {
    const environment_value setting("TZ", zone);
    use_zone_of_c_library();
    for (const time_t moment : {1780000000, 1795000000}) {
      struct tm told = {};
      localtime_r(&moment, &told);
      UErrorCode status = U_ZERO_ERROR;
      icu::GregorianCalendar fields(1900 + told.tm_year, told.tm_mon, told.tm_mday, told.tm_hour,
                                    told.tm_min, told.tm_sec, status);
      EXPECT_EQ(fields.getTime(status) / 1000, static_cast<double>(moment)) << zone;
      const int32_t milliseconds = ((told.tm_hour * 60 + told.tm_min) * 60 + told.tm_sec) * 1000;
      EXPECT_EQ(fields.getTimeZone().getOffset(icu::GregorianCalendar::AD, 1900 + told.tm_year,
                                               told.tm_mon, told.tm_mday, UCAL_MONDAY, milliseconds,
                                               status),
                static_cast<int32_t>(told.tm_gmtoff) * 1000)
          << zone;
      EXPECT_EQ(fields.getTimeZone().inDaylightTime(static_cast<double>(moment) * 1000, status),
                told.tm_isdst)
          << zone;
    }
  }
}

// A message of kplog tells the hour that the record does.
TEST(IcuZone, MessagesTellTheHourOfTheRecordWhereTheZoneIsARule) {
  const temp_folder folder;
  folder.write("shop.yaml", R"(kplog: 1
log_version: "2.0"
events:
  OPENED: {id: 1, attributes: {SINCE: Timestamp}, message: "open since {SINCE:time}"}
)");
  folder.write("records", R"({"event":"OPENED","attributes":{"SINCE":"2026-07-15T17:02:56+02:00"}}
)");
  const std::string rule = "export TZ=CET-1CEST,M3.5.0,M10.5.0/3; ";
  ASSERT_EQ(run_kplog(folder.path(), "compile -q shop.yaml -o shop.ldf").status, 0);
  const auto run =
      run_kplog(folder.path(), "render -q --definitions shop.ldf --locale en_GB records", rule);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("17:02:56"), std::string::npos) << run.out;
}
