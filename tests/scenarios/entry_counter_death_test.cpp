// Death of the counting process: the file then holds what was acknowledged, or one more.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>

#include "tests/support/counter_folder.h"
#include "tests/support/failing.h"

// A process that counts and acknowledges each count with a byte, until it is killed.
class counting_process {
 public:
  // In the child, `before` runs first; it counts entry IDs 1 to `keys` in turn.
  counting_process(const std::string& folder, int keys, const std::function<void()>& before) {
    if (pipe(pipe_) != 0) throw std::runtime_error("pipe failed");
    child_ = fork();
    if (child_ != 0) {
      close(pipe_[1]);
      return;
    }
    before();
    _kp_LOG_EntryCounter counter;
    counter.OpenEntryCounterFile(folder.c_str(), "c");
    for (int i = 0; counter.IncreaseCount(2026, 11, 15, i % keys + 1) == 0; ++i)
      if (write(pipe_[1], "+", 1) != 1) break;
    kill(getpid(), SIGKILL);
  }
  ~counting_process() { close(pipe_[0]); }
  counting_process(const counting_process&) = delete;
  counting_process& operator=(const counting_process&) = delete;

  // Waits until that many counts are acknowledged, kills the process, and returns how many were.
  int kill_after(int counts) {
    const int first = acknowledged(counts);
    kill(child_, SIGKILL);
    return first + wait_for_death();
  }
  // Waits for the process to die by itself; the counts acknowledged.
  int wait_for_death() {
    const int rest = acknowledged(1 << 30);
    int status = 0;
    waitpid(child_, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    return rest;
  }

 private:
  int acknowledged(int most) const {
    int n = 0;
    for (char c = 0; n < most && read(pipe_[0], &c, 1) == 1;) ++n;
    return n;
  }

  int pipe_[2] = {-1, -1};
  pid_t child_ = -1;
};

// Every record is whole, and the counts sum up to the acknowledged ones or one more.
static void expect_acknowledged(const std::string& bytes, int keys, int acknowledged) {
  long long sum = 0;
  for (int id = 1; id <= keys; ++id) {
    const long long count = count_in(bytes, 2026, 11, 15, id);
    const int sure = acknowledged / keys + (id <= acknowledged % keys ? 1 : 0);
    EXPECT_GE(count, sure == 0 ? -1 : sure) << id;
    EXPECT_LE(count, sure + 1) << id;
    if (count < 0) continue;
    sum += count;
    EXPECT_THAT(bytes,
                testing::HasSubstr(counter_record(2026, 11, 15, id, static_cast<unsigned>(count))));
  }
  EXPECT_GE(sum, acknowledged);
  EXPECT_LE(sum, acknowledged + 1);
}

TEST(CounterOfAKilledProcess, HoldsWhatWasAcknowledgedOrOneMore) {
  for (int counts = 0; counts < 60; ++counts) {
    const temp_folder folder;
    counting_process process(folder.path(), 4, [] {});
    const int acknowledged = process.kill_after(counts);
    ASSERT_GE(acknowledged, counts);
    const std::string bytes = read_whole_file(folder.file("c.cnt"));
    expect_acknowledged(bytes, 4, acknowledged);
    EXPECT_EQ(bytes.size() % 32, 0U);
  }
}

#ifdef KP_FAULTS
// The n-th write transfers `part` of its 32 bytes, and the process dies.
TEST(CounterOfAKilledProcess, WriteCutShortAnywhereHurtsNoOtherRecord) {
  constexpr int keys = 3;
  for (unsigned nth = 1; nth <= 8; ++nth) {
    for (size_t part = 0; part < 32; part += nth <= keys ? 1 : 31) {
      const temp_folder folder;
      counting_process process(folder.path(), keys, [=] {
        kp_fault_set(kp_fault_call::pwrite, {nth, EIO, 1, part});
      });
      const int acknowledged = process.wait_for_death();
      EXPECT_EQ(acknowledged, static_cast<int>(nth) - 1);
      const std::string bytes = read_whole_file(folder.file("c.cnt"));
      const size_t whole = std::min<size_t>(nth - 1, keys);
      for (size_t record = 0; record < whole; ++record) {
        const int id = static_cast<int>(record) + 1;
        EXPECT_GE(count_in(bytes, 2026, 11, 15, id), (acknowledged - id + keys) / keys);
      }
      EXPECT_EQ(bytes.size(), nth <= keys ? whole * 32 + part : whole * 32);
    }
  }
}

TEST(CounterOfAKilledProcess, NextProcessCountsOnBehindATornRecord) {
  for (size_t part = 1; part < 32; ++part) {
    const temp_folder folder;
    counting_process process(folder.path(), 2, [=] {
      kp_fault_set(kp_fault_call::pwrite, {2, EIO, 1, part});
    });
    EXPECT_EQ(process.wait_for_death(), 1);
    _kp_LOG_EntryCounter counter;
    ASSERT_EQ(counter.OpenEntryCounterFile(folder.path().c_str(), "c"), 0);
    EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 2), 0);
    EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 1), 0);
    const std::string bytes = read_whole_file(folder.file("c.cnt"));
    EXPECT_EQ(bytes.size() % 32, 0U);
    EXPECT_EQ(count_in(bytes, 2026, 11, 15, 1), 2);
    EXPECT_GE(count_in(bytes, 2026, 11, 15, 2), 1);
    EXPECT_LE(count_in(bytes, 2026, 11, 15, 2), 2);
  }
}
#endif
