#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "base/kp_time.h"
#include "kp_LOG_errors.h"
#include "tests/support/counter_folder.h"
#include "tests/support/failing.h"
#include "tests/support/raised.h"

using testing::ElementsAre;
using testing::IsEmpty;

// --- Opening and closing ---

TEST(EntryCounterFile, IsCreatedEmptyUnderTheNameWithItsExtension) {
  const temp_folder folder;
  _kp_LOG_EntryCounter counter;
  EXPECT_EQ(counter.OpenEntryCounterFile(folder.path().c_str(), "daily"), 0);
  EXPECT_TRUE(std::filesystem::is_regular_file(folder.file("daily.cnt")));
  EXPECT_EQ(std::filesystem::file_size(folder.file("daily.cnt")), 0U);
  EXPECT_NE(counter.GetFilePointer(), nullptr);
}

TEST(EntryCounterFile, SlashesAtTheEndOfTheDirectoryAreDropped) {
  const temp_folder folder;
  _kp_LOG_EntryCounter counter;
  EXPECT_EQ(counter.OpenEntryCounterFile((folder.path() + "///").c_str(), "c"), 0);
  EXPECT_TRUE(std::filesystem::exists(folder.file("c.cnt")));
}

TEST(EntryCounterFile, ExistingOneKeepsItsContent) {
  const std::string content = counter_record(2026, 11, 15, 100, 7);
  counter_folder f(content);
  EXPECT_EQ(f.bytes(), content);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 100, 8));
}

TEST(EntryCounterFile, NullDirectoryOrNameIsAFailureThatChangesNothing) {
  counter_folder f;
  FILE* const before = f.counter.GetFilePointer();
  EXPECT_EQ(f.counter.OpenEntryCounterFile(nullptr, "c"), -1);
  EXPECT_EQ(f.counter.OpenEntryCounterFile("/tmp", nullptr), -1);
  EXPECT_EQ(f.counter.GetFilePointer(), before);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
}

TEST(EntryCounterFile, ThatCannotBeCreatedStaysUnopenedWithoutAnError) {
  const debug_log_in_temp_folder log;
  _kp_LOG_EntryCounter counter;
  EXPECT_EQ(counter.OpenEntryCounterFile("/proc/no/such/folder", "c"), 0);
  EXPECT_EQ(counter.GetFilePointer(), nullptr);
  EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(counter.UpdateEntryCount(2026, 11, 15, 100, 3), 0);
  EXPECT_EQ(counter.CloseEntryCounterFile(), 0);
  EXPECT_EQ(counter.DeleteEntryElement(2026, 11, 15, 100), 0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(EntryCounterFile, UnopenedCounterWritesNothing) {
  _kp_LOG_EntryCounter counter;
  _kp_LOG_EntryCounterElement element;
  EXPECT_EQ(counter.GetFilePointer(), nullptr);
  EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(counter.UpdateEntryCount(2026, 11, 15, 100, 3), 0);
  EXPECT_EQ(counter.DeleteEntryElement(2026, 11, 15, 100), 0);
  EXPECT_EQ(counter.DeleteEntryElement(day_of(2026, 2, 2), day_of(2026, 1, 1)), 0);
  EXPECT_EQ(counter.addElement(&element), 0);
  EXPECT_EQ(counter.CloseEntryCounterFile(), 0);
}

// Opens the counter "c" of the folder, which is there and cannot even be read.
static void expect_unreadable_file_error(_kp_LOG_EntryCounter& counter,
                                         const debug_log_in_temp_folder& log) {
  EXPECT_EQ(raised<KPX_logging_file_operation_failed>(
                [&] { counter.OpenEntryCounterFile(log.folder().path().c_str(), "c"); }),
            "Cannot open file with read mode!\n");
  EXPECT_THAT(log.lines(), ElementsAre("logging/logentrycounter:N Error: Cannot open file " +
                                       log.folder().file("c.cnt") + " with read mode!"));
  EXPECT_EQ(counter.GetFilePointer(), nullptr);
}

TEST(EntryCounterFile, ExistingOneThatCannotBeReadRaisesAfterItsDebugLine) {
  const debug_log_in_temp_folder log;
  ASSERT_EQ(mknod(log.folder().file("c.cnt").c_str(), S_IFSOCK | 0600, 0), 0);  // opens for nobody
  _kp_LOG_EntryCounter counter;
  expect_unreadable_file_error(counter, log);
}

TEST(EntryCounterFile, LinkThatLeadsNowhereHasItsTargetCreated) {
  const debug_log_in_temp_folder log;
  std::filesystem::create_symlink("target", log.folder().file("c.cnt"));
  _kp_LOG_EntryCounter counter;
  EXPECT_EQ(counter.OpenEntryCounterFile(log.folder().path().c_str(), "c"), 0);
  EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(read_whole_file(log.folder().file("target")), counter_record(2026, 11, 15, 100, 1));
  EXPECT_TRUE(std::filesystem::is_symlink(log.folder().file("c.cnt")));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(EntryCounterFile, LinkWhoseTargetCannotBeCreatedStaysUnopenedWithoutAnError) {
  for (const char* target : {"no/such/folder", "c.cnt"}) {  // the second one leads to itself
    const debug_log_in_temp_folder log;
    std::filesystem::create_symlink(target, log.folder().file("c.cnt"));
    _kp_LOG_EntryCounter counter;
    EXPECT_EQ(counter.OpenEntryCounterFile(log.folder().path().c_str(), "c"), 0) << target;
    EXPECT_EQ(counter.GetFilePointer(), nullptr) << target;
    EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 100), 0) << target;
    EXPECT_THAT(log.lines(), IsEmpty()) << target;
  }
}

TEST(EntryCounterFile, OneThatCannotBeCreatedAfterAWritableOneLeavesNothingToDo) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.counter.OpenEntryCounterFile("/proc/no/such/folder", "c"), 0);
  _kp_LOG_EntryCounterElement element;
  EXPECT_EQ(f.counter.GetFilePointer(), nullptr);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.counter.UpdateEntryCount(2026, 11, 15, 100, 3), 0);
  EXPECT_EQ(f.counter.DeleteEntryElement(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.counter.DeleteEntryElement(day_of(2026, 1, 1), day_of(2026, 12, 31)), 0);
  EXPECT_EQ(f.counter.addElement(&element), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 100, 1));
}

TEST(EntryCounterFile, ReadOnlyCounterReturnsZeroAndChangesNothing) {
  const temp_folder folder;
  std::filesystem::create_directory(folder.file("c.cnt"));  // opens for reading only
  _kp_LOG_EntryCounter counter;
  _kp_LOG_EntryCounterElement element;
  EXPECT_EQ(counter.OpenEntryCounterFile(folder.path().c_str(), "c"), 0);
  EXPECT_NE(counter.GetFilePointer(), nullptr);
  EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(counter.UpdateEntryCount(2026, 11, 15, 100, 3), 0);
  EXPECT_EQ(counter.DeleteEntryElement(2026, 11, 15, 100), 0);
  EXPECT_EQ(counter.DeleteEntryElement(day_of(2026, 2, 2), day_of(2026, 1, 1)), 0);
  EXPECT_EQ(counter.addElement(&element), 0);
}

#ifdef KP_FAULTS
TEST(EntryCounterFile, FileThatRefusesWritingIsOpenedReadOnly) {
  const std::string content = counter_record(2026, 11, 15, 100, 7);
  const temp_folder folder;
  folder.write("c.cnt", content);
  _kp_LOG_EntryCounter counter;
  {
    const failing fault(kp_fault_call::fopen, 1, EACCES);
    EXPECT_EQ(counter.OpenEntryCounterFile(folder.path().c_str(), "c"), 0);
  }
  EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(counter.UpdateEntryCount(2026, 11, 15, 100, 3), 0);
  EXPECT_EQ(counter.DeleteEntryElement(2026, 11, 15, 100), 0);
  EXPECT_EQ(counter.DeleteEntryElement(day_of(2026, 1, 1), day_of(2026, 12, 31)), 0);
  _kp_LOG_EntryCounterElement element = {32, 2026, 11, 15, 200, 1, {0, 0}};
  EXPECT_EQ(counter.addElement(&element), 0);
  EXPECT_EQ(read_whole_file(folder.file("c.cnt")), content);
}

TEST(EntryCounterFile, FileThatRefusesReadingAsWellRaisesAfterItsDebugLine) {
  const std::string content = counter_record(2026, 11, 15, 100, 7);
  const debug_log_in_temp_folder log;
  log.folder().write("c.cnt", content);
  _kp_LOG_EntryCounter counter;
  const failing fault(kp_fault_call::fopen, 1, EACCES, from_then_on);
  expect_unreadable_file_error(counter, log);
  EXPECT_EQ(read_whole_file(log.folder().file("c.cnt")), content);
}

TEST(EntryCounterFile, OneThatCannotBeLookedAtIsNotEmptied) {
  const std::string content = counter_record(2026, 11, 15, 100, 7);
  const temp_folder folder;
  folder.write("c.cnt", content);
  _kp_LOG_EntryCounter counter;
  const failing fault(kp_fault_call::stat, 1, EIO, from_then_on);
  EXPECT_EQ(counter.OpenEntryCounterFile(folder.path().c_str(), "c"), 0);
  EXPECT_EQ(counter.GetFilePointer(), nullptr);
  EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(read_whole_file(folder.file("c.cnt")), content);
}

TEST(EntryCounterFile, OneThatAppearsWhileItIsCreatedKeepsItsContent) {
  const std::string content = counter_record(2026, 11, 15, 100, 7);
  const temp_folder folder;
  folder.write("c.cnt", content);
  _kp_LOG_EntryCounter counter;
  {
    const failing not_there_yet(kp_fault_call::stat, 1, ENOENT);
    EXPECT_EQ(counter.OpenEntryCounterFile(folder.path().c_str(), "c"), 0);
  }
  EXPECT_EQ(counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(read_whole_file(folder.file("c.cnt")), counter_record(2026, 11, 15, 100, 8));
}

TEST(EntryCounterFile, FailedOpenLeavesWritingAFailureAfterAWritableFile) {
  counter_folder f;
  {
    const failing fault(kp_fault_call::fopen, 1, EMFILE, from_then_on);
    EXPECT_EQ(raised<KPX_logging_file_operation_failed>(
                  [&] { f.counter.OpenEntryCounterFile(f.folder().path().c_str(), "c"); }),
              "Cannot open file with read mode!\n");
  }
  EXPECT_EQ(f.counter.GetFilePointer(), nullptr);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), -1);
}
#endif

TEST(EntryCounterFile, FailedAllocationLeavesTheOpenFileOpen) {
  counter_folder f;
  const std::string folder = f.folder().path() + std::string(100, '/');
  const auto open = [&] { f.counter.OpenEntryCounterFile(folder.c_str(), "other"); };
  const auto counts_on = [&](const std::exception_ptr& outcome) {
    expect_memory_alloc(outcome);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  };
  const unsigned failures = for_each_failing_new(open, counts_on);
  EXPECT_GT(failures, 0U);
  EXPECT_EQ(count_in(f.bytes(), 2026, 11, 15, 100), failures);
  EXPECT_TRUE(std::filesystem::exists(f.folder().file("other.cnt")));
}

TEST(EntryCounterFile, CountingAllocatesNothing) {
  counter_folder f;
  const failing_new fault(1, from_then_on);
  for (int id : {1, 2, 1}) EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, id), 0);
  EXPECT_EQ(f.counter.UpdateEntryCount(2026, 11, 15, 3, 7), 0);
  EXPECT_EQ(f.counter.DeleteEntryElement(2026, 11, 15, 1), 0);
  EXPECT_FALSE(fault.met());
}

TEST(EntryCounterFile, IsNotInheritedByOtherPrograms) {
  counter_folder created;
  EXPECT_EQ(fcntl(fileno(created.counter.GetFilePointer()), F_GETFD), FD_CLOEXEC);
  counter_folder existing(free_counter_slot());
  EXPECT_EQ(fcntl(fileno(existing.counter.GetFilePointer()), F_GETFD), FD_CLOEXEC);
}

TEST(EntryCounterFile, OpeningAgainClosesTheFirstFile) {
  const size_t before = open_descriptors();
  {
    counter_folder f;
    for (const char* name : {"d", "e", "f"})
      EXPECT_EQ(f.counter.OpenEntryCounterFile(f.folder().path().c_str(), name), 0);
    EXPECT_EQ(open_descriptors(), before + 1);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
    EXPECT_EQ(f.bytes(), "");
    EXPECT_EQ(read_whole_file(f.folder().file("f.cnt")), counter_record(2026, 11, 15, 100, 1));
  }
  EXPECT_EQ(open_descriptors(), before);
}

TEST(EntryCounterFile, AfterClosingEveryWritingOperationFails) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.counter.CloseEntryCounterFile(), 0);
  EXPECT_EQ(f.counter.CloseEntryCounterFile(), 0);
  _kp_LOG_EntryCounterElement element;
  EXPECT_EQ(f.counter.GetFilePointer(), nullptr);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), -1);  // the record counted last
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 200), -1);
  EXPECT_EQ(f.counter.UpdateEntryCount(2026, 11, 15, 100, 3), -1);
  EXPECT_EQ(f.counter.DeleteEntryElement(2026, 11, 15, 100), -1);
  EXPECT_EQ(f.counter.DeleteEntryElement(day_of(2026, 1, 1), day_of(2026, 12, 31)), -1);
  EXPECT_EQ(f.counter.addElement(&element), -1);
}

TEST(EntryCounterFile, MemoryOfTheCountedRecordOutlivesClosing) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  f.counter.CloseEntryCounterFile();
  f.counter.OpenEntryCounterFile(f.folder().path().c_str(), "c");
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 16, 7), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 7, 2));
}

// --- IncreaseCount ---

TEST(EntryCounterIncrease, TwiceGivesOneRecordOf32BytesWithCountTwo) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.bytes(), std::string("\0\0\0\x20\0\0\x07\xEA\0\0\0\x0B\0\0\0\x0F"
                                   "\0\0\0\x64\0\0\0\x02\0\0\0\0\0\0\0\0",
                                   32));
}

TEST(EntryCounterIncrease, TwoEntryIdsInTurnHaveARecordEach) {
  counter_folder f;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
    EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 200), 0);
  }
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 100, 3) + counter_record(2026, 11, 15, 200, 3));
}

TEST(EntryCounterIncrease, SameEntryIdOnTheNextDayCountsForTheDayBefore) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 16, 7), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 7, 2));
}

TEST(EntryCounterIncrease, AnotherEntryIdInBetweenLeadsToTheNewDay) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 8), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 16, 7), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 7, 1) + counter_record(2026, 11, 15, 8, 1) +
                           counter_record(2026, 11, 16, 7, 1));
}

TEST(EntryCounterIncrease, AfterASearchTheFoundRecordIsTheRememberedOne) {
  counter_folder f(counter_record(2026, 11, 14, 7, 4) + counter_record(2026, 11, 15, 7, 6));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 14, 7), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 14, 7, 4) + counter_record(2026, 11, 15, 7, 8));
}

TEST(EntryCounterIncrease, FirstOfTwoRecordsWithTheKeyIsCounted) {
  counter_folder f(counter_record(2026, 11, 15, 7, 4) + counter_record(2026, 11, 15, 7, 6));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 7, 5) + counter_record(2026, 11, 15, 7, 6));
}

TEST(EntryCounterIncrease, EachFieldOfTheKeyTellsRecordsApart) {
  const std::string others =
      counter_record(2025, 11, 15, 100, 1) + counter_record(2026, 10, 15, 100, 1) +
      counter_record(2026, 11, 14, 100, 1) + counter_record(2026, 11, 15, 99, 1);
  counter_folder f(others);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.bytes(), others + counter_record(2026, 11, 15, 100, 1));
}

TEST(EntryCounterIncrease, NegativeNumbersAreKeptAsTheyAre) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(-1, -2, -3, -4), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2147483647, 1, 1, -1), 0);
  EXPECT_EQ(f.counter.IncreaseCount(-1, -2, -3, -4), 0);
  EXPECT_EQ(f.bytes(), counter_record(-1, -2, -3, -4, 2) + counter_record(2147483647, 1, 1, -1, 1));
}

TEST(EntryCounterIncrease, CountWrapsBehind4294967295) {
  counter_folder f(counter_record(2026, 11, 15, 100, 4294967294U));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 100, 4294967295U));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 100, 0));
}

TEST(EntryCounterIncrease, LengthAndReservedBytesOfTheRecordStay) {
  std::string odd = counter_record(2026, 11, 15, 100, 1, "RESERVED");
  odd[3] = '\x40';
  counter_folder f(odd);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  odd[23] = '\x03';
  EXPECT_EQ(f.bytes(), odd);
}

TEST(EntryCounterIncrease, DateOfZerosMakesAFreeSlotThatASearchPassesOver) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(0, 0, 0, 5), 0);
  EXPECT_EQ(f.bytes(), counter_record(0, 0, 0, 5, 1));
  EXPECT_EQ(f.counter.UpdateEntryCount(0, 0, 0, 5, 9), 0);
  EXPECT_EQ(f.bytes(), counter_record(0, 0, 0, 5, 9));  // found by nobody, and written anew
  EXPECT_EQ(f.counter.DeleteEntryElement(0, 0, 0, 5), 0);
  EXPECT_EQ(f.bytes(), counter_record(0, 0, 0, 5, 9));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 6), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 6, 1));
}

TEST(EntryCounterIncrease, DeletedRecordIsNotCountedOn) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.counter.DeleteEntryElement(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 16, 100), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 16, 100, 1));
}

TEST(EntryCounterIncrease, FreeSlotIsUsedAgainByTheNextKey) {
  counter_folder f;
  for (int id : {100, 200}) EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, id), 0);
  EXPECT_EQ(f.counter.DeleteEntryElement(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 300), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 300, 1) + counter_record(2026, 11, 15, 200, 1));
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 300),
            0);  // the remembered position is the slot's
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 300, 2) + counter_record(2026, 11, 15, 200, 1));
}

TEST(EntryCounterIncrease, FindsRecordsOfALargeFileInAnyOrder) {
  counter_folder f;
  std::string expected;
  for (int id = 1; id <= 2000; ++id) {
    ASSERT_EQ(f.counter.IncreaseCount(2026, 11, 15, id), 0);
    expected += counter_record(2026, 11, 15, id, 2);
  }
  for (int i = 0; i < 2000; ++i)  // 1201 and 2000 have no common divisor: every ID comes once
    ASSERT_EQ(f.counter.IncreaseCount(2026, 11, 15, i * 1201 % 2000 + 1), 0);
  EXPECT_EQ(f.bytes(), expected);
}

// --- UpdateEntryCount ---

TEST(EntryCounterUpdate, SetsTheCountOfTheFirstRecordWithTheKey) {
  counter_folder f(counter_record(2026, 11, 14, 100, 1) +
                   counter_record(2026, 11, 15, 100, 2, "RESERVED") +
                   counter_record(2026, 11, 15, 100, 3));
  EXPECT_EQ(f.counter.UpdateEntryCount(2026, 11, 15, 100, 77), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 14, 100, 1) +
                           counter_record(2026, 11, 15, 100, 77, "RESERVED") +
                           counter_record(2026, 11, 15, 100, 3));
}

TEST(EntryCounterUpdate, CreatesTheRecordInTheFirstFreeSlot) {
  counter_folder f(counter_record(2026, 11, 14, 1, 1) + free_counter_slot("RESERVED") +
                   free_counter_slot());
  EXPECT_EQ(f.counter.UpdateEntryCount(2026, 11, 15, 100, -1), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 14, 1, 1) +
                           counter_record(2026, 11, 15, 100, 4294967295U) + free_counter_slot());
}

TEST(EntryCounterUpdate, LeavesTheRememberedEntryIdAsItIs) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  EXPECT_EQ(f.counter.UpdateEntryCount(2026, 11, 15, 7, 40), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 16, 7), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 7, 41));
}

TEST(EntryCounterUpdate, ThatCreatesARecordMovesTheRememberedPosition) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  EXPECT_EQ(f.counter.UpdateEntryCount(2026, 11, 15, 8, 40), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 16, 7), 0);  // the record there is 8's: a search
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 7, 1) + counter_record(2026, 11, 15, 8, 40) +
                           counter_record(2026, 11, 16, 7, 1));
}

// --- addElement ---

TEST(EntryCounterAdd, WritesEveryWordOfTheElementAndLeavesItAlone) {
  counter_folder f;
  _kp_LOG_EntryCounterElement element;
  element = {64, 2026, 11, 15, 100, 3, {0, 0}};
  memcpy(element.reserved, "RESERVED", 8);
  EXPECT_EQ(f.counter.addElement(&element), 0);
  std::string expected = counter_record(2026, 11, 15, 100, 3, "RESERVED");
  expected[3] = '\x40';
  EXPECT_EQ(f.bytes(), expected);
  EXPECT_EQ(element.length, 64U);
  EXPECT_EQ(element.year, 2026);
}

TEST(EntryCounterAdd, AppendsWhenNoSlotIsFreeAlsoAKeyThatIsThere) {
  const std::string record = counter_record(2026, 11, 15, 100, 3);
  counter_folder f(record);
  _kp_LOG_EntryCounterElement element = {32, 2026, 11, 15, 100, 3, {0, 0}};
  EXPECT_EQ(f.counter.addElement(&element), 0);
  EXPECT_EQ(f.bytes(), record + record);
}

TEST(EntryCounterAdd, SlotIsFreeByItsDateAlone) {
  counter_folder f(counter_record(0, 0, 1, 0, 0) + counter_record(0, 0, 0, 99, 99, "RESERVED"));
  _kp_LOG_EntryCounterElement element = {32, 2026, 11, 15, 100, 3, {0, 0}};
  EXPECT_EQ(f.counter.addElement(&element), 0);
  EXPECT_EQ(f.bytes(), counter_record(0, 0, 1, 0, 0) + counter_record(2026, 11, 15, 100, 3));
}

TEST(EntryCounterAdd, NullIsAFailure) {
  counter_folder f;
  EXPECT_EQ(f.counter.addElement(nullptr), -1);
  EXPECT_EQ(f.bytes(), "");
}

TEST(EntryCounterAdd, SlotWithoutADateIsNoRecordCountedLast) {
  counter_folder f;
  _kp_LOG_EntryCounterElement slot;
  EXPECT_EQ(f.counter.addElement(&slot), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, -1), 0);  // no ID counted yet reads as -1
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, -1, 1));
}

TEST(EntryCounterAdd, SetsTheRememberedPosition) {
  counter_folder f;
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7), 0);
  _kp_LOG_EntryCounterElement same_key = {32, 2026, 11, 15, 7, 10, {0, 0}};
  EXPECT_EQ(f.counter.addElement(&same_key), 0);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 7),
            0);  // the record at that position has its key
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 15, 7, 1) + counter_record(2026, 11, 15, 7, 11));
}
