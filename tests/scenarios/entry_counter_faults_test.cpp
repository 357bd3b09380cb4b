// What a counter file holds after disks fill up, calls fail and others write to it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <random>
#include <string>

#include "base/kp_time.h"
#include "tests/support/counter_folder.h"
#include "tests/support/failing.h"

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

TEST(CounterOnFullDisk, RefusedRecordIsNeverCountedForTheEntryIdBefore) {
  counter_folder f(counter_record(2026, 11, 14, 1, 1));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 14, 1), 0);
  {
    const file_size_limit limit(32);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), -1);
  }
  EXPECT_EQ(f.counter.UpdateEntryCount(2026, 11, 15, 2, 40), 0);  // now it stands there
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 14, 1), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 14, 1, 3) + counter_record(2026, 11, 15, 2, 40));
}

TEST(CounterOnFullDisk, AfterARefusedRecordTheSameEntryIdIsSearchedByItsDate) {
  counter_folder f(counter_record(2026, 11, 14, 1, 1));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 14, 1), 0);
  {
    const file_size_limit limit(32);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), -1);
  }
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 1), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 14, 1, 2) + counter_record(2026, 11, 15, 1, 1) +
                           counter_record(2026, 11, 15, 2, 1));
}

TEST(CounterOnFullDisk, RefusedRecordIsCountedOnceThereIsRoom) {
  counter_folder f(counter_record(2026, 11, 14, 1, 1));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 14, 1), 0);
  for (int i = 0; i < 3; ++i) {
    const file_size_limit limit(32);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), -1);
  }
  for (int i = 0; i < 3; ++i) EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 14, 1, 2) + counter_record(2026, 11, 15, 2, 3));
}

TEST(CounterOnFullDisk, RefusedElementMovesTheRememberedPosition) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 14, 1), 0);
  _kp_LOG_EntryCounterElement element = {32, 2026, 11, 15, 2, 1, {0, 0}};
  {
    const file_size_limit limit(32);
    EXPECT_EQ(f.counter.addElement(&element), -1);
  }
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 1), 0);  // nothing there to count: a search
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 14, 1, 1) + counter_record(2026, 11, 15, 1, 1));
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

TEST(CounterWithTornRecord, RememberedOneWithItsWholeKeyIsCountedWhateverTheDate) {
  for (size_t torn = 20; torn <= 31; ++torn) {
    counter_folder f;
    for (int i = 0; i < 5; ++i) EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
    std::filesystem::resize_file(f.path(), torn);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 16, 7), 0);
    EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 7, torn < 24 ? 1 : 6)) << torn;
  }
}

TEST(CounterWithTornRecord, RememberedOneWithoutItsWholeKeyIsNotCounted) {
  for (size_t torn = 7; torn <= 19; ++torn) {
    counter_folder f;
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
    std::filesystem::resize_file(f.path(), torn);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 16, 7), 0);
    std::string filled = counter_record(2026, 11, 15, 7, 1).substr(0, torn);
    filled.resize(32, '\0');
    EXPECT_EQ(f.bytes(), filled + counter_record(2026, 11, 16, 7, 1)) << torn;
  }
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
      const failing fault(kp_fault_call::pread, 1, EIO);
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
      const failing fault(kp_fault_call::pwrite, 1, ENOSPC);
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
    const failing fault(kp_fault_call::pread, 1, 0, from_then_on, piece);
    for (int id : {2, 3, 3}) EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, id), 0);
    EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 15, 2, 2) +
                             counter_record(2026, 11, 15, 3, 2));
  }
}

TEST(CounterWithFailingCalls, InterruptedCallsAreMadeAgain) {
  counter_folder f(two_records);
  const failing reading(kp_fault_call::pread, 1, EINTR);
  const failing writing(kp_fault_call::pwrite, 1, EINTR);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 15, 2, 2));
}

TEST(CounterWithFailingCalls, FailedReadOfTheRememberedRecordLeadsToASearch) {
  counter_folder f(two_records);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  const failing fault(kp_fault_call::pread, 1, EIO);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(count_in(f.bytes(), 2026, 11, 15, 2), 3);
}

TEST(CounterWithFailingCalls, FailedWriteOfTheRememberedRecordIsAFailure) {
  counter_folder f(two_records);
  const debug_log_in_temp_folder log;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  {
    const failing fault(kp_fault_call::pwrite, 1, EIO);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), -1);
  }
  EXPECT_THAT(log.lines(), ElementsAre(seek_error_line));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(count_in(f.bytes(), 2026, 11, 15, 2), 3);
}

TEST(CounterWithFailingCalls, DebugLineIsOfLevelOne) {
  counter_folder f(two_records);
  const debug_log_in_temp_folder log(0);
  const failing fault(kp_fault_call::pwrite, 1, EIO);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), -1);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(CounterWithFailingCalls, RangeThatFailsHalfWayKeepsWhatItCleared) {
  counter_folder f(two_records);
  const failing fault(kp_fault_call::pwrite, 2, EIO);
  EXPECT_EQ(f.counter.DeleteEntryElement(noon_of(2026, 11, 15), noon_of(2026, 11, 15)), -1);
  EXPECT_EQ(f.bytes(), free_counter_slot() + counter_record(2026, 11, 15, 2, 1));
}

#endif
