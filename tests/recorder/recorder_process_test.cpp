// Recorders when threads and processes end, and in children of fork.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <thread>

#include "tests/recorder/recorder_calls.h"

using testing::ElementsAre;
using testing::IsEmpty;

class RecorderProcess : public RecorderCalls {};

// ---- The ends of threads and of the process ----

// Records when its thread ends: before the thread's lanes go where it was made behind them.
struct last_words {
  ~last_words() {
    if (log != nullptr) said = log->Record(shop::STEP{.NUMBER = 2u, .THREAD = 1u});
  }
  kp_LOG_Recorder* log = nullptr;
  inline static std::atomic<answer> said = answer::rejected;
};
static thread_local last_words words;

TEST_F(RecorderProcess, TakesTheLastWordsOfThreads) {
  kp_LOG_Recorder log(options());
  std::thread([&] {
    ASSERT_EQ(log.Record(shop::STEP{.NUMBER = 1u, .THREAD = 1u}), answer::recorded);
    words.log = &log;
  }).join();
  EXPECT_EQ(last_words::said, answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_THAT(messages(), ElementsAre("1 1", "1 2"));
}

TEST_F(RecorderProcess, ClosesInStaticObjectsWhenTheProcessExits) {
  const pid_t child = fork();
  if (child == 0) {
    kp_LOG_RecorderOptions plain = options();
    plain.on_fault = {};
    static kp_LOG_Recorder log(plain);
    for (uint32_t number = 1; number <= 100; ++number)
      log.Record(shop::STEP{.NUMBER = number, .THREAD = 1u});
    exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(messages().size(), 100u);
  EXPECT_THAT(rings(), IsEmpty());
}

// Records when it is destroyed, and tells what it is answered on standard error.
struct farewell {
  ~farewell() {
    if (log == nullptr) return;
    std::fprintf(stderr, "%s %d.", name, static_cast<int>(log->Record(shop::PLAIN{})));
  }
  const char* name;
  kp_LOG_Recorder* log = nullptr;
};
static thread_local farewell of_main_thread{"thread"};

TEST_F(RecorderProcess, AnswersWhateverIsDestroyedBehindMain) {
  kp_LOG_RecorderOptions plain = options();
  plain.on_fault = {};
  EXPECT_EXIT(
      {
        static farewell behind_recorder{"behind"};
        static kp_LOG_Recorder log(plain);
        static farewell before_recorder{"before"};
        of_main_thread.log = behind_recorder.log = before_recorder.log = &log;
        log.Record(shop::PLAIN{});
        exit(0);
      },
      testing::ExitedWithCode(0), "^thread [07]\\.before 7\\.behind 7\\.$");
  EXPECT_THAT(messages().size(), testing::AnyOf(1u, 2u));  // the order of thread_locals decides
  EXPECT_THAT(rings(), IsEmpty());
}

static void record_until_closed(kp_LOG_Recorder& log, std::atomic<uint64_t>& recorded) {
  for (uint32_t number = 1;; ++number) {
    const answer got = log.Record(shop::STEP{.NUMBER = number, .THREAD = 1u});
    if (got == answer::recorded) ++recorded;
    if (got == answer::lost_closed) return;
  }
}

TEST_F(RecorderProcess, WritesWhatThreadsRecordWhileTheProcessExits) {
  kp_LOG_RecorderOptions plain = options();
  plain.on_fault = {};
  plain.ring_size = 512 << 10;
  const pid_t child = fork();
  if (child == 0) {
    static std::atomic<uint64_t> recorded = 0;
    static std::thread recording;
    // Runs behind the recorder's destructor.
    std::atexit([] {
      recording.join();
      const int told = open("told", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
      dprintf(told, "%lu", static_cast<unsigned long>(recorded));
    });
    static kp_LOG_Recorder log(plain);
    if (chdir(folder_.path().c_str()) != 0) _exit(2);
    recording = std::thread([] { record_until_closed(log, recorded); });
    while (recorded < 1000) std::this_thread::yield();
    exit(0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  uint64_t written = 0;
  for (const std::string& message : messages())
    if (message.find("lost") == std::string::npos) ++written;
  EXPECT_EQ(std::to_string(written), read_whole_file(folder_.file("told")));
  EXPECT_THAT(rings(), IsEmpty());
}

// ---- Children of fork ----

// AddressSanitizer's own locks do not come through such forks.
#ifndef KP_SANITIZED

TEST_F(RecorderProcess, ChildrenOfForkHaveRingsOfTheirOwn) {
  kp_LOG_RecorderOptions plain = options();
  plain.on_fault = {};
  kp_LOG_Recorder log(plain);
  ASSERT_EQ(log.Record(shop::STEP{.NUMBER = 1u, .THREAD = 1u}), answer::recorded);
  const pid_t child = fork();
  if (child == 0) {
    const bool is_recorded = log.Record(shop::STEP{.NUMBER = 2u, .THREAD = 2u}) == answer::recorded;
    const bool is_flushed = log.Flush(patience);
    _exit(is_recorded && is_flushed && files_with(".ring.").size() == 2 ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  ASSERT_EQ(log.Record(shop::STEP{.NUMBER = 3u, .THREAD = 1u}), answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_THAT(messages(), testing::UnorderedElementsAre("1 1", "2 2", "1 3"));
  std::set<std::string> recorders;
  for (const auto& line : stored()) recorders.insert(line["recorder"]);
  EXPECT_EQ(recorders.size(), 2u);
}

TEST_F(RecorderProcess, ChildrenOfForkWriteWhateverTheParentsWriterWasDoing) {
  kp_LOG_RecorderOptions plain = options();
  plain.on_fault = {};
  plain.ring_size = 512 << 10;
  static constexpr unsigned seconds = 30;
  for (unsigned round = 0; round < 20; ++round) {
    const pid_t parent = fork();  // in which nothing is known of the language yet
    if (parent == 0) {
      alarm(seconds);
      plain.locale = round % 2 == 0 ? "de_DE" : "fr_FR";
      kp_LOG_Recorder log(plain);
      for (unsigned event = 0; event < round * 5; ++event) log.Record(tea());
      const pid_t child = fork();
      if (child == 0) {
        alarm(seconds);
        const bool is_recorded = log.Record(tea()) == answer::recorded;
        _exit(is_recorded && log.Flush(patience) ? 0 : 1);
      }
      int status = -1;
      waitpid(child, &status, 0);
      _exit(status == 0 && log.Flush(patience) ? 0 : 1);
    }
    int status = -1;
    waitpid(parent, &status, 0);
    ASSERT_EQ(status, 0) << "round " << round;
  }
}

#endif

TEST_F(RecorderProcess, ChildrenOfForkThatRecordNothingTouchNothing) {
  auto log = std::make_unique<kp_LOG_Recorder>(options());
  log->Record(tea());
  const pid_t child = fork();
  if (child == 0) {
    log.reset();
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  EXPECT_EQ(log->Record(tea()), answer::recorded);
  log.reset();
  EXPECT_EQ(messages().size(), 2u);
}
