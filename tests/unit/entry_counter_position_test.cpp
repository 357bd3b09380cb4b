// Where the position of a counter's file is, and what goes on between the counter and the stream.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <filesystem>
#include <functional>
#include <string>

#include "base/kp_time.h"
#include "tests/support/counter_folder.h"
#include "tests/support/failing.h"

using testing::ElementsAre;

// Clears the day of all the records of these tests, from the file's position on.
static int clear_day(counter_folder& f) {
  return f.counter.DeleteEntryElement(day_of(2026, 11, 15), day_of(2026, 11, 15));
}

static int clear_day_from(counter_folder& f, off_t position) {
  EXPECT_EQ(fseeko(f.counter.GetFilePointer(), position, SEEK_SET), 0);
  return clear_day(f);
}

// --- The position of the file ---

TEST(EntryCounterPosition, IsBehindTheRecordWrittenOrAtTheEnd) {
  counter_folder f;
  EXPECT_EQ(f.position(), 0);
  f.counter.IncreaseCount(2026, 11, 15, 1);
  EXPECT_EQ(f.position(), 32);
  f.counter.IncreaseCount(2026, 11, 15, 2);
  EXPECT_EQ(f.position(), 64);
  f.counter.IncreaseCount(2026, 11, 15, 1);
  EXPECT_EQ(f.position(), 32);
  f.counter.IncreaseCount(2026, 11, 15, 1);
  EXPECT_EQ(f.position(), 32);
  f.counter.UpdateEntryCount(2026, 11, 15, 2, 9);
  EXPECT_EQ(f.position(), 64);
  f.counter.DeleteEntryElement(2026, 11, 15, 1);
  EXPECT_EQ(f.position(), 32);
  f.counter.DeleteEntryElement(2026, 11, 15, 1);
  EXPECT_EQ(f.position(), 64);
  f.counter.UpdateEntryCount(2026, 11, 15, 3, 9);
  EXPECT_EQ(f.position(), 32);
  EXPECT_EQ(clear_day_from(f, 0), 0);
  EXPECT_EQ(f.position(), 64);
}

TEST(EntryCounterPosition, IsTheSameForAStreamThatIsAskedForLater) {
  counter_folder f;
  for (int id : {1, 2, 3}) f.counter.IncreaseCount(2026, 11, 15, id);
  f.counter.IncreaseCount(2026, 11, 15, 2);
  EXPECT_EQ(f.position(), 64);
}

TEST(EntryCounterPosition, BehindATornRecordIsTheEndOfTheFile) {
  counter_folder f(counter_record(2026, 11, 15, 1, 1) + std::string(13, 'x'));
  EXPECT_EQ(f.counter.DeleteEntryElement(2026, 11, 15, 2), 0);
  EXPECT_EQ(f.position(), 45);
  EXPECT_EQ(clear_day(f), 0);
  EXPECT_EQ(f.position(), 45);
}

TEST(EntryCounterPosition, AfterClearingATornRecordIsBehindIt) {
  const std::string whole = counter_record(2026, 11, 15, 1, 1);
  const std::string torn = counter_record(2026, 11, 15, 2, 5).substr(0, 17);
  counter_folder f(whole + torn);
  EXPECT_EQ(clear_day(f), 0);
  EXPECT_EQ(f.position(), 64);
  counter_folder shared(whole + torn);
  EXPECT_EQ(clear_day_from(shared, 32), 0);
  EXPECT_EQ(shared.position(), 64);
  EXPECT_EQ(shared.bytes(), whole + free_counter_slot());
}

TEST(EntryCounterPosition, OfARangeThatStartsInsideTheLastRecordIsTheEndOfTheFile) {
  const std::string record = counter_record(2026, 11, 15, 1, 1);
  for (const std::string& content : {record + record, record + record.substr(0, 13)}) {
    for (off_t start = 33; start <= static_cast<off_t>(content.size()); ++start) {
      counter_folder f(content);
      EXPECT_EQ(clear_day_from(f, start), 0);
      EXPECT_EQ(f.position(), static_cast<long>(content.size())) << start;
      EXPECT_EQ(f.bytes(), content) << start;
    }
  }
}

TEST(EntryCounterPosition, OfARangeThatStartsBeyondTheEndStays) {
  const std::string content = counter_record(2026, 11, 15, 1, 1).substr(0, 13);
  for (off_t start : {off_t{14}, off_t{31}, off_t{32}, off_t{100}, off_t{1} << 40}) {
    counter_folder f(content);
    EXPECT_EQ(clear_day_from(f, start), 0);
    EXPECT_EQ(f.position(), start);
    EXPECT_EQ(f.bytes(), content);
  }
}

// A file in memory has no smaller limit of its own.
TEST(EntryCounterPosition, AtTheEndOfAllOffsetsHasNothingBehindIt) {
  const int memory = memfd_create("counter", MFD_CLOEXEC);
  const temp_folder folder;
  std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(memory), folder.file("c.cnt"));
  _kp_LOG_EntryCounter counter;
  ASSERT_EQ(counter.OpenEntryCounterFile(folder.path().c_str(), "c"), 0);
  close(memory);
  for (off_t before_end = 0; before_end < 70; ++before_end) {
    const off_t start = LLONG_MAX - before_end;
    ASSERT_EQ(fseeko(counter.GetFilePointer(), start, SEEK_SET), 0);
    EXPECT_EQ(counter.DeleteEntryElement(day_of(2026, 1, 1), day_of(2026, 12, 31)), 0);
    EXPECT_EQ(ftello(counter.GetFilePointer()), start);
  }
}

TEST(EntryCounterPosition, StaysWhereNothingIsDone) {
  counter_folder f(counter_record(2026, 11, 15, 1, 1));
  fseek(f.counter.GetFilePointer(), 7, SEEK_SET);
  EXPECT_EQ(f.counter.DeleteEntryElement(day_of(2026, 11, 16), day_of(2026, 11, 15)), -1);
  EXPECT_EQ(f.position(), 7);
}

TEST(EntryCounterStream, ReadsWhatTheCounterHasJustWritten) {
  counter_folder f(counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 15, 2, 1));
  FILE* const stream = f.counter.GetFilePointer();
  char bytes[64];
  ASSERT_EQ(fread(bytes, 1, 64, stream), 64U);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 1), 0);
  EXPECT_EQ(f.counter.GetFilePointer(), stream);
  rewind(stream);
  ASSERT_EQ(fread(bytes, 1, 64, stream), 64U);
  EXPECT_EQ(std::string(bytes, 64), f.bytes());
  EXPECT_EQ(count_in(f.bytes(), 2026, 11, 15, 1), 2);
}

TEST(EntryCounterStream, CounterReadsWhatTheStreamHasJustWritten) {
  counter_folder f(counter_record(2026, 11, 15, 1, 1));
  FILE* const stream = f.counter.GetFilePointer();
  const std::string replacement = counter_record(2026, 11, 15, 1, 50);
  rewind(stream);
  ASSERT_EQ(fwrite(replacement.data(), 1, 32, stream), 32U);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 1), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 1, 51));
}

// --- Failing calls ---

#ifdef KP_FAULTS

static const std::string seek_error_line = "logging/logentrycounter:N Seek error!";

// Every operation that writes, each on the second of two records or behind them.
using counter_operation = std::function<int(counter_folder&)>;
static _kp_LOG_EntryCounterElement added_element = {32, 2026, 11, 15, 9, 1, {0, 0}};
static const std::array<counter_operation, 6> operations = {
    [](counter_folder& f) { return f.counter.IncreaseCount(2026, 11, 15, 2); },
    [](counter_folder& f) { return f.counter.IncreaseCount(2026, 11, 15, 3); },
    [](counter_folder& f) { return f.counter.UpdateEntryCount(2026, 11, 15, 2, 5); },
    [](counter_folder& f) { return f.counter.DeleteEntryElement(2026, 11, 15, 2); },
    [](counter_folder& f) { return clear_day(f); },
    [](counter_folder& f) { return f.counter.addElement(&added_element); },
};

static const std::string two_records =
    counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 15, 2, 1);

TEST(EntryCounterPosition, ThatCannotBeSetIsFoundBeforeAnythingIsWritten) {
  for (const kp_fault_call call : {kp_fault_call::fseek, kp_fault_call::ftell}) {
    for (const counter_operation& operation : operations) {
      counter_folder f(two_records);
      const debug_log_in_temp_folder log;
      ASSERT_NE(f.counter.GetFilePointer(), nullptr);
      {
        const failing fault(call, 1, EIO, from_then_on);
        EXPECT_EQ(operation(f), -1);
      }
      EXPECT_THAT(log.lines(), ElementsAre(seek_error_line));
      EXPECT_EQ(f.bytes(), two_records);
    }
  }
}

TEST(EntryCounterPosition, ThatCannotBeSetLeavesNoCountThatIsSaidToHaveFailed) {
  for (unsigned nth = 1; nth <= 5; ++nth) {
    counter_folder f(counter_record(2026, 11, 15, 1, 1));
    ASSERT_NE(f.counter.GetFilePointer(), nullptr);
    unsigned counted = 0;
    const failing fault(kp_fault_call::fseek, nth, EIO);
    for (int i = 0; i < 4; ++i)
      if (f.counter.IncreaseCount(2026, 11, 15, 2) == 0) ++counted;
    EXPECT_EQ(counted, 3U) << nth;
    EXPECT_EQ(count_in(f.bytes(), 2026, 11, 15, 2), counted) << nth;
  }
}

TEST(EntryCounterPosition, ThatCannotBeSetLeavesTheRememberedRecordAsItWas) {
  counter_folder f(counter_record(2026, 11, 14, 7, 1) + counter_record(2026, 11, 15, 8, 1));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 14, 7), 0);
  ASSERT_NE(f.counter.GetFilePointer(), nullptr);
  {
    const failing fault(kp_fault_call::fseek, 1, EIO);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 8), -1);
  }
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 14, 7, 3) + counter_record(2026, 11, 15, 8, 1));
}

TEST(EntryCounterPosition, AfterAFailedWriteIsBeforeTheRecord) {
  const std::array<long, operations.size()> places = {32, 64, 32, 32, 0, 64};
  for (const bool shared : {false, true}) {
    for (size_t i = 0; i < operations.size(); ++i) {
      counter_folder f(two_records);
      if (shared) f.position();  // asks for the stream
      const failing fault(kp_fault_call::pwrite, 1, EIO);
      EXPECT_EQ(operations.at(i)(f), -1);
      EXPECT_EQ(f.position(), places.at(i)) << i;
    }
  }
}

TEST(EntryCounterPosition, AfterAFailedReadIsBeforeTheRecordsThatWereNotRead) {
  std::string content;
  for (int id = 0; id < 600; ++id) content += counter_record(2026, 11, 16, id, 1);
  counter_folder f(content);
  const failing fault(kp_fault_call::pread, 2, EIO);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 1), -1);
  EXPECT_EQ(f.position(), 512 * 32);
}

// The second of its records fails, and it is done again.
static void expect_range_taken_up(kp_fault_call call, bool shared) {
  counter_folder f(two_records + two_records);
  if (shared) f.position();  // asks for the stream
  {
    const failing fault(call, 2, EIO);
    EXPECT_EQ(clear_day(f), -1);
  }
  EXPECT_EQ(f.bytes(), free_counter_slot() + two_records.substr(32) + two_records);
  EXPECT_EQ(clear_day(f), 0);
  EXPECT_EQ(count_in(f.bytes(), 2026, 11, 15, 1), -1);
  EXPECT_EQ(count_in(f.bytes(), 2026, 11, 15, 2), -1);
}

TEST(EntryCounterPosition, RangeThatFailedIsTakenUpWithTheRecordThatFailed) {
  expect_range_taken_up(kp_fault_call::pwrite, false);
  expect_range_taken_up(kp_fault_call::pwrite, true);
  expect_range_taken_up(kp_fault_call::fseek, true);
}

#endif
