// kp_LOG_Recorder and many threads.
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <latch>
#include <map>
#include <thread>

#include "tests/recorder/recorder_fixture.h"

using std::chrono::milliseconds;
using testing::IsEmpty;
using answer = kp_LOG_Recorded;

static constexpr milliseconds patience(20000);

class RecorderThreads : public RecorderPlace {};

TEST_F(RecorderThreads, TakesEventsOfManyThreadsInTheirOrder) {
  static constexpr unsigned threads = 8, events = 500;
  {
    kp_LOG_RecorderOptions small = options();
    small.ring_size = 512 << 10;
    small.wait = patience;
    kp_LOG_Recorder log(small);
    std::vector<std::thread> all;
    for (unsigned thread = 0; thread < threads; ++thread)
      all.emplace_back([&log, thread] {
        for (uint32_t number = 1; number <= events; ++number)
          ASSERT_EQ(log.Record(shop::STEP{.NUMBER = number, .THREAD = thread}), answer::recorded);
      });
    for (std::thread& thread : all) thread.join();
  }
  std::map<uint64_t, uint32_t> last;
  std::map<uint64_t, std::string> times;
  uint64_t sequence = 0;
  for (const auto& line : stored()) {
    EXPECT_EQ(line["sequence"], ++sequence);
    const uint64_t thread = line["attributes"]["THREAD"];
    ASSERT_EQ(line["attributes"]["NUMBER"], ++last[thread]);
    EXPECT_LT(times[thread], line["recorded"].get<std::string>());
    times[thread] = line["recorded"];
  }
  EXPECT_EQ(sequence, threads * events);
  EXPECT_THAT(rings(), IsEmpty());
}

TEST_F(RecorderThreads, ServesMoreThreadsThanItsRingHasBlocks) {
  static constexpr unsigned threads = 2000;
  {
    kp_LOG_RecorderOptions small = options();
    small.ring_size = 512 << 10;  // 128 blocks
    small.wait = patience;
    kp_LOG_Recorder log(small);
    std::vector<std::thread> all;
    std::latch have_recorded(threads);
    for (unsigned thread = 0; thread < threads; ++thread)
      all.emplace_back([&, thread] {
        EXPECT_EQ(log.Record(shop::STEP{.NUMBER = 1u, .THREAD = thread}), answer::recorded);
        have_recorded.arrive_and_wait();
        EXPECT_EQ(log.Record(shop::STEP{.NUMBER = 2u, .THREAD = thread}), answer::recorded);
      });
    for (std::thread& thread : all) thread.join();
  }
  EXPECT_EQ(messages().size(), 2 * threads);
}

TEST_F(RecorderThreads, AnswersRecordedForNothingThatIsLostWhenItCloses) {
  for (int round = 0; round < 10; ++round) {
    std::atomic<uint64_t> recorded = 0;
    std::atomic<bool> has_begun = false;
    std::vector<std::thread> all;
    alignas(kp_LOG_Recorder) unsigned char memory[sizeof(kp_LOG_Recorder)];
    auto* const log = new (memory) kp_LOG_Recorder(options());
    for (unsigned thread = 0; thread < 3; ++thread)
      all.emplace_back([&, thread] {
        for (uint32_t number = 1;; ++number) {
          const answer got = log->Record(shop::STEP{.NUMBER = number, .THREAD = thread});
          if (got == answer::lost_closed) return;
          if (got == answer::recorded) ++recorded;
          has_begun = true;
        }
      });
    while (!has_begun) std::this_thread::yield();
    log->~kp_LOG_Recorder();
    for (std::thread& thread : all) thread.join();
    size_t written = 0;
    for (const std::string& message : messages())
      if (message.find("lost") == std::string::npos) ++written;
    ASSERT_EQ(written, recorded);
    for (const std::string& log_file : files_with("shop.2")) unlink(log_file.c_str());
    unlink(folder_.file("shop.jsonl").c_str());
  }
}

TEST_F(RecorderThreads, RecordWhileSettingsChangeAndLogsAreRenamed) {
  static constexpr unsigned threads = 8;
  kp_LOG_RecorderOptions filtered = options();
  filtered.settings = folder_.write("shop.conf", "[shop]\nLogLevelHigh = 3\n\n");
  filtered.section = "shop";
  filtered.wait = patience;
  uint64_t recorded = 0;
  uint64_t rejected = 0;
  {
    kp_LOG_Recorder log(filtered);
    std::atomic<unsigned> running = threads;
    std::vector<std::thread> all;
    for (unsigned thread = 0; thread < threads; ++thread)
      all.emplace_back([&, thread] {
        for (uint32_t number = 1; number <= 1000; ++number)
          log.Record(number % 5, shop::STEP{.NUMBER = number, .THREAD = thread});
        --running;
      });
    for (int round = 0; running != 0; ++round) {
      folder_.write("shop.conf", "[shop]\nLogLevelHigh = " + std::to_string(round % 5) + "\n\n");
      for (const std::string& name : files_with("shop.2"))
        rename(name.c_str(), folder_.file("moved." + std::to_string(round)).c_str());
      log.Flush(milliseconds(50));
    }
    for (std::thread& thread : all) thread.join();
    recorded = log.Statistics().recorded;
    rejected = log.Statistics().rejected;
  }
  EXPECT_EQ(stored().size(), recorded);
  EXPECT_GT(recorded, 0u);
  EXPECT_GT(rejected, 0u);
  size_t lines = messages().size();
  for (const std::string& name : files_with("moved."))
    lines += lines_of(read_whole_file(name)).size();
  EXPECT_EQ(lines, recorded);
}
