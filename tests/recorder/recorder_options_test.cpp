// What a recorder does for each of its options.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <mutex>
#include <optional>
#include <thread>

#include "kp_LOG_errors.h"
#include "recording/files/folder_lock.h"
#include "tests/recorder/recorder_fixture.h"
#include "tests/support/failing.h"
#include "tests/support/raised_by.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::SizeIs;
using answer = kp_LOG_Recorded;
namespace fs = std::filesystem;

static constexpr milliseconds patience(20000);

class RecorderOption : public RecorderPlace {
 protected:
  // Of a recorder with a small ring whose text logs cannot be written once their folder is gone.
  kp_LOG_RecorderOptions small_options() const {
    kp_LOG_RecorderOptions small = options();
    fs::create_directory(logs_);
    small.text = logs_ + "/shop";
    small.ring_folder = folder_.path();
    small.ring_size = ring_size_;
    small.on_fault = {};
    return small;
  }

  static answer record_one(kp_LOG_Recorder& log) {
    return log.Record(shop::STEP{.NUMBER = 1u, .THREAD = 1u});
  }
  static void fill(kp_LOG_Recorder& log) {
    while (record_one(log) == answer::recorded) {
    }
  }

  const std::string logs_ = folder_.file("logs");
  const uint64_t ring_size_ = 512 << 10;
};

TEST_F(RecorderOption, PathsAreThoseOfTheFolderThatItIsMadeIn) {
  kp_LOG_RecorderOptions relative = options();
  relative.text = "shop";
  relative.json = "./shop.jsonl";
  {
    std::optional<working_folder> here(folder_.path());
    kp_LOG_Recorder log(relative);
    here.reset();
    EXPECT_EQ(record_one(log), answer::recorded);
    EXPECT_TRUE(log.Flush(patience));
    EXPECT_THAT(rings(), SizeIs(1));
  }
  EXPECT_THAT(messages(), SizeIs(1));
  EXPECT_THAT(stored(), SizeIs(1));
}

TEST_F(RecorderOption, CodePageIsThatOfTheTextLogs) {
  kp_LOG_RecorderOptions latin = options();
  latin.code_page = "ISO-8859-1";
  {
    kp_LOG_Recorder log(latin);
    log.Record(shop::DISK_FAILED{.DEVICE = "caf\u00e9"});
  }
  EXPECT_THAT(messages(), testing::ElementsAre("The disk caf\xE9 failed"));
  EXPECT_EQ(stored()[0]["attributes"]["DEVICE"], "caf\u00e9");
}

TEST_F(RecorderOption, MaxSizeBeginsANewTextLog) {
  kp_LOG_RecorderOptions short_logs = options();
  short_logs.max_size = 10000;
  {
    kp_LOG_Recorder log(short_logs);
    for (int i = 0; i < 1000; ++i) record_one(log);
  }
  EXPECT_GT(files_with("shop.2").size(), 2u);
  for (const std::string& name : files_with("shop.2")) EXPECT_LE(fs::file_size(name), 10000u);
  EXPECT_THAT(messages(), SizeIs(1000));
}

// Alone, it is the recorder's place as well.
TEST_F(RecorderOption, JournalHasTheStoredFormInSegments) {
  kp_LOG_RecorderOptions kept = options();
  kept.text = kept.json = "";
  kept.journal = folder_.file("kept") + ",max-size=10000,compress=zstd";
  {
    kp_LOG_Recorder log(kept);
    EXPECT_THAT(files_with("kept.ring."), SizeIs(1));
    for (int i = 0; i < 1000; ++i) record_one(log);
    EXPECT_TRUE(log.Flush(patience));
    EXPECT_GT(files_with(".jsonl").size(), 5u);
    // The thread compresses all but the last when it has time.
    const auto end = steady_clock::now() + patience;
    while (files_with(".zst").empty() && steady_clock::now() < end)
      std::this_thread::sleep_for(milliseconds(2));
    EXPECT_FALSE(files_with(".zst").empty());
  }
  const std::vector<std::string> lines = lines_of(journal("kept"));
  ASSERT_THAT(lines, SizeIs(1000));
  for (size_t i = 0; i < lines.size(); ++i)
    EXPECT_EQ(nlohmann::json::parse(lines[i])["sequence"], i + 1);
  EXPECT_THAT(rings(), SizeIs(0));
}

TEST_F(RecorderOption, JournalOptionsAreThoseOfEmit) {
  kp_LOG_RecorderOptions wrong = options();
  wrong.journal = folder_.file("kept") + ",size=1";
  EXPECT_EQ(raised_by<KPX_logging_illegal_argument>([&] { kp_LOG_Recorder log(wrong); }),
            "kp_LOG_Recorder: the sink journal:" + wrong.journal +
                " has the option \"size=1\"; its options are max-size=SIZE, keep=TIME, "
                "keep-size=SIZE and compress=zstd");
  EXPECT_THAT(rings(), SizeIs(0));
}

TEST_F(RecorderOption, RingFolderHasTheRingForItsOwnerAlone) {
  kp_LOG_RecorderOptions elsewhere = options();
  elsewhere.ring_folder = folder_.file("rings");
  fs::create_directory(elsewhere.ring_folder);
  elsewhere.ring_size = ring_size_;
  {
    const kp_LOG_Recorder log(elsewhere);
    EXPECT_THAT(rings(), SizeIs(0));
    unsigned found = 0;
    for (const auto& file : fs::directory_iterator(elsewhere.ring_folder)) {
      EXPECT_THAT(file.path().filename().string(), testing::StartsWith("shop.ring."));
      struct stat status {};
      ASSERT_EQ(stat(file.path().c_str(), &status), 0);
      EXPECT_EQ(status.st_mode & 07777u, 0600u);
      EXPECT_GE(static_cast<uint64_t>(status.st_blocks) * 512, ring_size_);
      ++found;
    }
    EXPECT_EQ(found, 1u);
  }
  EXPECT_TRUE(fs::is_empty(elsewhere.ring_folder));
}

TEST_F(RecorderOption, WaitIsHowLongACallWaitsForRoom) {
  kp_LOG_RecorderOptions waiting = small_options();
  waiting.wait = milliseconds(40);
  kp_LOG_Recorder log(waiting);
  fs::remove_all(logs_);
  fill(log);
  const auto begin = steady_clock::now();
  EXPECT_EQ(record_one(log), answer::lost_full);
  EXPECT_GE(steady_clock::now() - begin, waiting.wait);
  fs::create_directory(logs_);
}

TEST_F(RecorderOption, RingSizeIsForMoreThanOneThread) {
  kp_LOG_RecorderOptions losing = small_options();
  losing.when_full = kp_LOG_WhenFull::lose;
  kp_LOG_Recorder log(losing);
  fs::remove_all(logs_);
  fill(log);
  EXPECT_GE(log.Statistics().bytes, ring_size_ / 4);
  EXPECT_LE(log.Statistics().bytes, ring_size_ / 2 + 4096);  // and a block of the recorder's own
  std::thread([&] { EXPECT_EQ(record_one(log), answer::recorded); }).join();
  fs::create_directory(logs_);
}

TEST_F(RecorderOption, HoldsEventsWhileAnotherHasTheLockOfAnOutput) {
  kp_LOG_RecorderOptions told = small_options();
  std::mutex mutex;
  std::vector<std::string> faults;
  told.on_fault = [&](kp_LOG_RecorderFault, const std::string& text) {
    const std::lock_guard hold(mutex);
    faults.push_back(text);
  };
  kp_LOG_Recorder log(told);
  {
    const folder_lock held(logs_, "shop");
    EXPECT_EQ(record_one(log), answer::recorded);
    EXPECT_FALSE(log.Flush(milliseconds(700)));
  }
  EXPECT_TRUE(log.Flush(patience));
  const std::lock_guard hold(mutex);
  EXPECT_THAT(faults, testing::ElementsAre(HasSubstr("waiting for the lock ")));
}

#ifdef KP_FAULTS

TEST_F(RecorderOption, SyncedPutsEachOutputOnTheDiskBeforeAFlushIsTrue) {
  for (const bool is_synced : {false, true}) {
    kp_LOG_RecorderOptions synced = options();
    synced.count = folder_.file("shop");
    synced.synced = is_synced;
    kp_LOG_Recorder log(synced);
    EXPECT_EQ(record_one(log), answer::recorded);
    EXPECT_TRUE(log.Flush(patience));  // the files are there
    const failing files(kp_fault_call::fsync, 0, 0);
    const failing counts(kp_fault_call::fdatasync, 0, 0);
    EXPECT_EQ(record_one(log), answer::recorded);
    EXPECT_TRUE(log.Flush(patience));
    if (is_synced) {
      EXPECT_GE(files.calls_seen(), 2u);
      EXPECT_GE(counts.calls_seen(), 1u);
    } else {
      EXPECT_EQ(files.calls_seen() + counts.calls_seen(), 0u);
    }
  }
}

#endif

// ---- The recorder's thread ----

TEST_F(RecorderOption, ThreadOfTheRecorderTakesNoSignals) {
  kp_LOG_Recorder log(options());
  record_one(log);
  ASSERT_TRUE(log.Flush(patience));  // the thread has begun
  unsigned found = 0;
  for (const auto& task : fs::directory_iterator("/proc/self/task")) {
    if (read_whole_file(task.path() / "comm") != "kplog-recorder\n") continue;
    ++found;
    const std::string status = read_whole_file(task.path() / "status");
    const uint64_t blocked = std::stoull(status.substr(status.find("SigBlk:") + 7), nullptr, 16);
    for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGUSR1, SIGALRM, SIGCHLD, SIGPROF})
      EXPECT_EQ(blocked >> (number - 1) & 1, 1u) << "signal " << number;
  }
  EXPECT_EQ(found, 1u);
}

// ---- No memory ----

TEST_F(RecorderOption, LackOfMemoryIsToldAsSuch) {
  const kp_LOG_RecorderOptions small = small_options();
  for (unsigned n = 1; n <= 50; ++n) {
    std::exception_ptr outcome;
    {
      const failing_new failing(n);
      try {
        const kp_LOG_Recorder log(small);
      } catch (...) {
        outcome = std::current_exception();
      }
    }
    expect_memory_alloc(outcome);
  }
}

TEST_F(RecorderOption, LackOfMemoryLeavesNoRingBehind) {
  const kp_LOG_RecorderOptions small = small_options();
  unsigned failures = 0;
  for (unsigned n = 1; n <= 1500; n += 11) {
    const failing_new failing(n);
    try {
      const kp_LOG_Recorder log(small);
    } catch (const KPX_memory_alloc&) {
      ++failures;
    }
  }
  EXPECT_GT(failures, 20u);
  EXPECT_THAT(rings(), testing::IsEmpty());
}
