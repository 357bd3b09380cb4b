// When events were recorded, by clocks that do not go as they should.
#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>
#include <optional>

#include "tests/recorder/recorder_fixture.h"

// What the calling thread's clock of the day shows, where a test has set it.
static thread_local const timespec* shown_time = nullptr;

// The program's clocks: the system's, but for what tests set.
extern "C" KP_API int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (clock != CLOCK_REALTIME || shown_time == nullptr)
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  *time = *shown_time;
  return 0;
}

class RecorderClock : public RecorderPlace {
 protected:
  ~RecorderClock() override { shown_time = nullptr; }

  const std::time_t now_ = std::time(nullptr);
};

TEST_F(RecorderClock, MakesEachTimeLaterThanTheOneBefore) {
  timespec time{now_, 999'999'990};
  {
    kp_LOG_Recorder log(options());
    shown_time = &time;
    for (uint32_t number = 1; number <= 20; ++number)  // it stands still
      log.Record(shop::STEP{.NUMBER = number, .THREAD = 1u});
    time.tv_sec -= 3600;  // and is set back
    for (uint32_t number = 21; number <= 40; ++number)
      log.Record(shop::STEP{.NUMBER = number, .THREAD = 1u});
    time.tv_sec += 7200;  // and forth
    log.Record(shop::STEP{.NUMBER = 41u, .THREAD = 1u});
    shown_time = nullptr;
  }
  const auto lines = stored();
  ASSERT_EQ(lines.size(), 41u);
  std::string last;
  for (size_t at = 0; at < lines.size(); ++at) {
    EXPECT_EQ(lines[at]["attributes"]["NUMBER"], at + 1);
    const std::string recorded = lines[at]["recorded"];
    EXPECT_LT(last, recorded);
    last = recorded;
  }
  EXPECT_EQ(lines[0]["recorded"].get<std::string>().substr(19, 10), ".999999990");
  EXPECT_EQ(lines[39]["recorded"].get<std::string>().substr(19, 10), ".000000029");
  EXPECT_EQ(lines[40]["recorded"].get<std::string>().substr(19, 10), ".999999990");
}
