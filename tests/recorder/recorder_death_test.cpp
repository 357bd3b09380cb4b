// Recorders that die: whatever they took comes into the outputs, once.
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <map>
#include <random>
#include <thread>

#include "recording/ring/recovery.h"
#include "tests/recorder/recorder_fixture.h"

using std::chrono::milliseconds;

static constexpr unsigned threads = 4;

// What a child and its parent both see.
struct shared_counts {
  std::array<std::atomic<uint32_t>, threads> recorded = {};  // of each thread
};

class RecorderDeath : public RecorderPlace {
 protected:
  RecorderDeath()
      : counts_(new (mmap(nullptr, sizeof(shared_counts), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0)) shared_counts) {}
  ~RecorderDeath() override { munmap(counts_, sizeof(shared_counts)); }

  // Records until the process is killed.
  [[noreturn]] void record_without_end() const {
    kp_LOG_RecorderOptions small = options();
    small.ring_size = 512 << 10;
    kp_LOG_Recorder log(small);
    std::vector<std::thread> all;
    for (unsigned thread = 0; thread < threads; ++thread)
      all.emplace_back([&, thread] {
        for (uint32_t number = counts_->recorded[thread] + 1;; ++number) {
          while (log.Record(shop::STEP{.NUMBER = number, .THREAD = thread}) !=
                 kp_LOG_Recorded::recorded) {
          }
          counts_->recorded[thread].store(number);
        }
      });
    for (std::thread& thread : all) thread.join();
    _exit(0);
  }

  void record_and_be_killed_after(std::chrono::microseconds life) const {
    const pid_t child = fork();
    if (child == 0) record_without_end();
    std::this_thread::sleep_for(life);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }

  // Every event that a thread was told is recorded stands in the text logs once, in its order; the
  // last that nobody was told of may be there as well.
  void expect_all_once() {
    std::array<uint32_t, threads> last = last_;
    for (const std::string& message : messages()) {
      const unsigned thread = static_cast<unsigned>(std::stoul(message));
      const auto number = static_cast<uint32_t>(std::stoul(message.substr(message.find(' '))));
      ASSERT_LT(thread, threads);
      ASSERT_EQ(number, last[thread] + 1) << "of thread " << thread;
      last[thread] = number;
    }
    for (unsigned thread = 0; thread < threads; ++thread) {
      EXPECT_GE(last[thread], counts_->recorded[thread]);
      EXPECT_LE(last[thread], counts_->recorded[thread] + 1);
      counts_->recorded[thread] = last[thread];
    }
    last_ = last;
  }

  shared_counts* counts_;
  std::array<uint32_t, threads> last_ = {};  // that the outputs had in the rounds before
};

TEST_F(RecorderDeath, LosesNothingAndWritesNothingTwice) {
  std::mt19937 random(20261122);
  for (int round = 0; round < 20; ++round) {
    record_and_be_killed_after(std::chrono::microseconds(random() % 10000));
    recovered_events found = recover_rings(folder_.file("shop"), {});
    EXPECT_EQ(found.failures, 0u);
    EXPECT_EQ(found.damaged, 0u);
    EXPECT_THAT(rings(), testing::IsEmpty());
    expect_all_once();
    if (HasFailure()) return;
    for (const std::string& log : files_with("shop.2")) unlink(log.c_str());
    unlink(folder_.file("shop.jsonl").c_str());
  }
}
