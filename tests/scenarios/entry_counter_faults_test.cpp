// What a counter file holds after disks fill up, processes die and others write to it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>

#include "base/kp_time.h"
#include "tests/support/counter_folder.h"
#include "tests/support/faults.h"

using testing::ElementsAre;
using testing::IsEmpty;

static const std::string seek_error_line = "logging/logentrycounter:N Seek error!";

static kp_Time noon_of(int year, int month, int day) {
  return {year, month, day, 12, 0, 0};
}

// --- A full disk ---

TEST(CounterOnFullDisk, DeviceWithoutRoomRefusesEveryNewRecord) {
  const debug_log_in_temp_folder log;
  std::filesystem::create_symlink("/dev/full", log.folder().file("c.cnt"));
  _kp_LOG_EntryCounter counter;
  ASSERT_EQ(counter.OpenEntryCounterFile(log.folder().path().c_str(), "c"), 0);
  _kp_LOG_EntryCounterElement element;
  EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 100), -1);
  EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 100), -1);
  EXPECT_EQ(counter.UpdateEntryCount(2026, 11, 15, 100, 3), -1);
  EXPECT_EQ(counter.addElement(&element), -1);
  EXPECT_EQ(counter.DeleteEntryElement(2026, 11, 15, 100), 0);
  EXPECT_THAT(log.lines(),
              ElementsAre(seek_error_line, seek_error_line, seek_error_line, seek_error_line));
}

// No file of this process may grow beyond that many bytes, for a scope.
class file_size_limit {
 public:
  explicit file_size_limit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &before_);
    handler_ = signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~file_size_limit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }
  file_size_limit(const file_size_limit&) = delete;
  file_size_limit& operator=(const file_size_limit&) = delete;

 private:
  rlimit before_ = {};
  sighandler_t handler_ = SIG_DFL;
};

TEST(CounterOnFullDisk, RecordsThatAreThereAreStillCounted) {
  const std::string content =
      counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 15, 2, 1);
  counter_folder f(content);
  const file_size_limit limit(64);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 3), -1);
  EXPECT_EQ(f.bytes(), content);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 15, 2, 3));
}

TEST(CounterOnFullDisk, RecordWrittenInPartHealsWhenThereIsRoomAgain) {
  for (rlim_t room = 0; room < 32; ++room) {
    const std::string whole = counter_record(2026, 11, 15, 1, 1);
    counter_folder f(whole);
    {
      const file_size_limit limit(32 + room);
      EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), -1) << room;
    }
    EXPECT_EQ(f.bytes(), whole + counter_record(2026, 11, 15, 2, 1).substr(0, room));
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0) << room;
    EXPECT_EQ(f.bytes().size() % 32, 0U) << room;
    EXPECT_EQ(f.bytes().substr(0, 32), whole);
    EXPECT_GE(count_in(f.bytes(), 2026, 11, 15, 2), 1) << room;
  }
}

TEST(CounterOnFullDisk, RefusedRecordIsNotRemembered) {
  counter_folder f(counter_record(2026, 11, 14, 1, 1));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 14, 1), 0);
  {
    const file_size_limit limit(32);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), -1);
  }
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 14, 1), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 14, 1, 3) + counter_record(2026, 11, 15, 2, 1));
}

// --- A torn last record ---

TEST(CounterWithTornRecord, OneWithoutItsDateIsAFreeSlot) {
  const std::string first = counter_record(2026, 11, 15, 1, 1);
  for (size_t torn = 1; torn <= 6; ++torn) {  // the first two bytes of the year are 0
    counter_folder f(first + counter_record(2026, 11, 15, 2, 5).substr(0, torn));
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 3), 0);
    EXPECT_EQ(f.bytes(), first + counter_record(2026, 11, 15, 3, 1)) << torn;
  }
}

TEST(CounterWithTornRecord, OneWithPartOfItsDateIsARecordFilledUpWithZeros) {
  const std::string first = counter_record(2026, 11, 15, 1, 1);
  for (size_t torn = 7; torn <= 31; ++torn) {
    std::string filled = counter_record(2026, 11, 15, 2, 5).substr(0, torn);
    counter_folder f(first + filled);
    filled.resize(32, '\0');
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 3), 0);
    EXPECT_EQ(f.bytes(), first + filled + counter_record(2026, 11, 15, 3, 1)) << torn;
  }
}

TEST(CounterWithTornRecord, OneWithItsWholeKeyIsFoundAndMadeWhole) {
  const std::string record = counter_record(2026, 11, 15, 2, 5);
  for (size_t torn = 20; torn <= 31; ++torn) {
    counter_folder f(record.substr(0, torn));
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
    EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 2, torn < 24 ? 1 : 6)) << torn;
  }
}

TEST(CounterWithTornRecord, OneOfTheRangeIsCleared) {
  counter_folder f(counter_record(2026, 11, 15, 2, 5).substr(0, 17));
  EXPECT_EQ(f.counter.DeleteEntryElement(noon_of(2026, 11, 15), noon_of(2026, 11, 15)), 0);
  EXPECT_EQ(f.bytes(), free_counter_slot());
}

TEST(CounterWithTornRecord, FileCutUnderTheRememberedRecordIsSearchedAnew) {
  counter_folder f;
  for (int id : {1, 2}) EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, id), 0);
  std::filesystem::resize_file(f.path(), 40);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(f.bytes().substr(0, 32), counter_record(2026, 11, 15, 1, 1));
  EXPECT_EQ(f.bytes().substr(64), counter_record(2026, 11, 15, 2, 1));
}

TEST(CounterWithTornRecord, FileCutToNothingStartsAnew) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  std::filesystem::resize_file(f.path(), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 16, 2), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 16, 2, 1));
}

// --- Another process ---

TEST(CounterBesideAnotherProcess, RecordOfTheRememberedPositionIsReadAnew) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  f.write_from_outside(0, counter_record(2026, 11, 15, 7, 100, "RESERVED"));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 7, 101, "RESERVED"));
  f.write_from_outside(0, counter_record(2026, 11, 15, 8, 5));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 8, 5) + counter_record(2026, 11, 15, 7, 1));
}

TEST(CounterBesideAnotherProcess, SearchesReadTheFileAnew) {
  counter_folder f(counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 15, 2, 1));
  EXPECT_EQ(f.counter.UpdateEntryCount(2026, 11, 15, 2, 10), 0);
  f.write_from_outside(0, counter_record(2026, 11, 15, 2, 50));
  EXPECT_EQ(f.counter.UpdateEntryCount(2026, 11, 15, 2, 11), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 2, 11) + counter_record(2026, 11, 15, 2, 10));
  f.write_from_outside(0, free_counter_slot());
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 3), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 3, 1) + counter_record(2026, 11, 15, 2, 10));
}

TEST(CounterBesideAnotherProcess, TwoCountersOnOneFileSeeEachOther) {
  counter_folder f;
  _kp_LOG_EntryCounter other;
  ASSERT_EQ(other.OpenEntryCounterFile(f.folder().path().c_str(), "c"), 0);
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 1), 0);
    EXPECT_EQ(other.IncreaseCount(2026, 11, 15, 1), 0);
    EXPECT_EQ(other.IncreaseCount(2026, 11, 15, 2 + i % 3), 0);
  }
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 1, 100) + counter_record(2026, 11, 15, 2, 17) +
                           counter_record(2026, 11, 15, 3, 17) +
                           counter_record(2026, 11, 15, 4, 16));
}

TEST(CounterBesideAnotherProcess, RemovedFileIsCountedInUntilItIsClosed) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 1), 0);
  std::filesystem::remove(f.path());
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 1), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_FALSE(std::filesystem::exists(f.path()));
  FILE* const stream = f.counter.GetFilePointer();
  char bytes[65];
  rewind(stream);
  EXPECT_EQ(fread(bytes, 1, sizeof bytes, stream), 64U);
  EXPECT_EQ(std::string(bytes, 64),
            counter_record(2026, 11, 15, 1, 2) + counter_record(2026, 11, 15, 2, 1));
  EXPECT_EQ(f.counter.OpenEntryCounterFile(f.folder().path().c_str(), "c"), 0);
  EXPECT_EQ(f.bytes(), "");
}

TEST(CounterBesideAnotherProcess, DamagedBytesAreJustRecords) {
  std::mt19937 random(7);
  std::string content(32 * 20 + 5, '\0');
  for (char& c : content) c = static_cast<char>(random());
  counter_folder f(content);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 1), 0);
  EXPECT_EQ(f.counter.DeleteEntryElement(noon_of(1, 1, 1), noon_of(9999, 12, 31)), 0);
  EXPECT_EQ(f.bytes().substr(0, content.size()), content);
  EXPECT_EQ(f.bytes().substr(32 * 21), counter_record(2026, 11, 15, 1, 1));
}

// --- A file beyond 2 GiB: free slots up to there are a hole in the file ---

TEST(CounterBeyond2GiB, RecordIsCountedAndSearchedEachTime) {
  counter_folder f;
  f.write_from_outside(size_t{1} << 31, counter_record(2026, 11, 15, 1, 1));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 1), 0);
  EXPECT_EQ(f.position(), (1L << 31) + 32);
  // A remembered position would lead past the record that now stands before it.
  f.write_from_outside(64, counter_record(2026, 11, 15, 1, 10));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 1), 0);
  EXPECT_EQ(f.position(), 96);
}

// --- Failing calls ---

#ifdef KP_FAULTS

using counter_operation = std::function<int(_kp_LOG_EntryCounter&)>;

static _kp_LOG_EntryCounterElement some_element = {32, 2026, 11, 15, 9, 1, {0, 0}};

// Every operation that reads and writes, on a file that holds entry IDs 1 and 2 of one day.
static const std::array<counter_operation, 5> operations_on_two = {
    [](_kp_LOG_EntryCounter& c) { return c.IncreaseCount(2026, 11, 15, 2); },
    [](_kp_LOG_EntryCounter& c) { return c.UpdateEntryCount(2026, 11, 15, 2, 5); },
    [](_kp_LOG_EntryCounter& c) { return c.DeleteEntryElement(2026, 11, 15, 2); },
    [](_kp_LOG_EntryCounter& c) {
      return c.DeleteEntryElement(noon_of(2026, 11, 15), noon_of(2026, 11, 15));
    },
    [](_kp_LOG_EntryCounter& c) { return c.addElement(&some_element); },
};

static const std::string two_records =
    counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 15, 2, 1);

TEST(CounterWithFailingCalls, FailedReadIsAFailureWithItsDebugLine) {
  for (const counter_operation& operation : operations_on_two) {
    counter_folder f(two_records);
    const debug_log_in_temp_folder log;
    {
      const fault_scope fault(kp_fault_call::pread, 1, EIO);
      EXPECT_EQ(operation(f.counter), -1);
    }
    EXPECT_THAT(log.lines(), ElementsAre(seek_error_line));
    EXPECT_EQ(f.bytes(), two_records);
    EXPECT_EQ(operation(f.counter), 0);
  }
}

TEST(CounterWithFailingCalls, FailedWriteIsAFailureWithItsDebugLine) {
  for (const counter_operation& operation : operations_on_two) {
    counter_folder f(two_records);
    const debug_log_in_temp_folder log;
    {
      const fault_scope fault(kp_fault_call::pwrite, 1, ENOSPC);
      EXPECT_EQ(operation(f.counter), -1);
    }
    EXPECT_THAT(log.lines(), ElementsAre(seek_error_line));
    EXPECT_EQ(f.bytes(), two_records);
    EXPECT_EQ(operation(f.counter), 0);
  }
}

TEST(CounterWithFailingCalls, ReadsInPiecesFindTheSameRecords) {
  for (size_t piece : {1U, 13U, 32U, 40U}) {
    counter_folder f(two_records);
    const fault_scope fault(kp_fault_call::pread, 1, 0, true, piece);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 3), 0);
    EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 15, 2, 2) +
                             counter_record(2026, 11, 15, 3, 1));
  }
}

TEST(CounterWithFailingCalls, InterruptedCallsAreMadeAgain) {
  counter_folder f(two_records);
  const fault_scope reading(kp_fault_call::pread, 1, EINTR);
  const fault_scope writing(kp_fault_call::pwrite, 1, EINTR);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 15, 2, 2));
}

TEST(CounterWithFailingCalls, FailedReadOfTheRememberedRecordLeadsToASearch) {
  counter_folder f(two_records);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  const fault_scope fault(kp_fault_call::pread, 1, EIO);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(count_in(f.bytes(), 2026, 11, 15, 2), 3);
}

TEST(CounterWithFailingCalls, FailedWriteOfTheRememberedRecordIsAFailure) {
  counter_folder f(two_records);
  const debug_log_in_temp_folder log;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  {
    const fault_scope fault(kp_fault_call::pwrite, 1, EIO);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), -1);
  }
  EXPECT_THAT(log.lines(), ElementsAre(seek_error_line));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(count_in(f.bytes(), 2026, 11, 15, 2), 3);
}

TEST(CounterWithFailingCalls, StreamThatCannotBeMovedIsAFailure) {
  for (const kp_fault_call call : {kp_fault_call::fseek, kp_fault_call::ftell}) {
    counter_folder f(two_records);
    const debug_log_in_temp_folder log;
    ASSERT_NE(f.counter.GetFilePointer(), nullptr);
    const fault_scope fault(call, 1, EIO);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), -1);
    EXPECT_THAT(log.lines(), ElementsAre(seek_error_line));
  }
}

TEST(CounterWithFailingCalls, DebugLineIsOfLevelOne) {
  counter_folder f(two_records);
  const debug_log_in_temp_folder log(0);
  const fault_scope fault(kp_fault_call::pwrite, 1, EIO);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), -1);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(CounterWithFailingCalls, RangeThatFailsHalfWayKeepsWhatItCleared) {
  counter_folder f(two_records);
  const fault_scope fault(kp_fault_call::pwrite, 2, EIO);
  EXPECT_EQ(f.counter.DeleteEntryElement(noon_of(2026, 11, 15), noon_of(2026, 11, 15)), -1);
  EXPECT_EQ(f.bytes(), free_counter_slot() + counter_record(2026, 11, 15, 2, 1));
}

#endif

// --- Death of the counting process: the file then holds what was acknowledged, or one more ---

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
        kp_fault_set(kp_fault_call::pwrite, {nth, EIO, false, part});
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
      kp_fault_set(kp_fault_call::pwrite, {2, EIO, false, part});
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
