// Threads that show dates and times while the zone changes.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "logging/logmsg_dates.h"
#include "tests/support/icu_setting.h"
#include "tests/support/temp_folder.h"

static std::string time_shown(const logmsg_clock& clock) {
  logmsg_dates& dates = logmsg_dates::current();
  dates.follow_zones();
  return std::string(dates.shown({logmsg_kind::time, &icu::Locale::getDefault(), "UTF-8"}, clock));
}

static std::string time_of(int hour, int minute) {
  const auto two_digits = [](int n) { return std::string(n < 10 ? "0" : "") + std::to_string(n); };
  return two_digits(hour) + ":" + two_digits(minute) + ":00";
}

TEST(MessageDatesThreads, ShowEachTimeInAZoneOfNow) {
  const icu_locale_setting locale("de_DE");
  const environment_value tz("TZ", "UTC");
  const icu_zone_setting before("UTC");
  std::atomic<bool> done = false;
  std::atomic<unsigned> shown = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&done, &shown] {
      for (int minute = 0; !done; minute = (minute + 1) % 60, ++shown) {
        const std::string text = time_shown(logmsg_clock(kp_Time(2026, 7, 15, 12, minute, 0)));
        if (text != time_of(12, minute) && text != time_of(21, minute)) {
          ADD_FAILURE() << text;
          return;
        }
      }
    });
  for (int i = 0; (i < 40 || shown < 500) && !HasFailure(); ++i) {
    const icu_zone_setting zone(i % 2 == 0 ? "Asia/Tokyo" : "UTC");
    std::this_thread::yield();
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(time_shown(logmsg_clock(kp_Time(2026, 7, 15, 12, 1, 0))), "12:01:00");
}
