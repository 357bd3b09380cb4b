#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "base/kp_time.h"
#include "tests/support/counter_folder.h"

using testing::IsEmpty;

// --- DeleteEntryElement by key ---

TEST(EntryCounterDelete, ClearsTheFirstRecordWithTheKeyAndKeepsItsReservedBytes) {
  counter_folder f(counter_record(2026, 11, 15, 100, 2, "RESERVED") +
                   counter_record(2026, 11, 15, 100, 3));
  EXPECT_EQ(f.counter.DeleteEntryElement(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.bytes(), free_counter_slot("RESERVED") + counter_record(2026, 11, 15, 100, 3));
}

TEST(EntryCounterDelete, KeyThatIsNotThereIsNothingToDo) {
  const std::string content = counter_record(2026, 11, 15, 100, 2);
  counter_folder f(content);
  EXPECT_EQ(f.counter.DeleteEntryElement(2026, 11, 15, 101), 0);
  EXPECT_EQ(f.bytes(), content);
  counter_folder empty;
  EXPECT_EQ(empty.counter.DeleteEntryElement(2026, 11, 15, 101), 0);
  EXPECT_EQ(empty.bytes(), "");
}

TEST(EntryCounterDelete, MakesTheLengthOfTheSlot32) {
  std::string odd = counter_record(2026, 11, 15, 100, 1);
  odd[3] = '\x40';
  counter_folder f(odd);
  EXPECT_EQ(f.counter.DeleteEntryElement(2026, 11, 15, 100), 0);
  EXPECT_EQ(f.bytes(), free_counter_slot());
}

// --- DeleteEntryElement by range ---

static int clear_range(counter_folder& f, const kp_Time& from, const kp_Time& to) {
  rewind(f.counter.GetFilePointer());
  return f.counter.DeleteEntryElement(from, to);
}

TEST(EntryCounterRange, ClearsEveryRecordOfItsDays) {
  counter_folder f(counter_record(2026, 11, 14, 1, 1) + counter_record(2026, 11, 15, 2, 2) +
                   counter_record(2026, 11, 16, 3, 3, "RESERVED") +
                   counter_record(2026, 11, 17, 4, 4));
  EXPECT_EQ(clear_range(f, day_of(2026, 11, 15), day_of(2026, 11, 16)), 0);
  EXPECT_EQ(f.bytes(), counter_record(2026, 11, 14, 1, 1) + free_counter_slot() +
                           free_counter_slot("RESERVED") + counter_record(2026, 11, 17, 4, 4));
}

TEST(EntryCounterRange, OverTheEndOfAMonthClearsNothingOfTheDaysInBetween) {
  const std::string content = counter_record(2026, 1, 28, 1, 1) + counter_record(2026, 2, 2, 1, 1);
  counter_folder f(content);
  EXPECT_EQ(clear_range(f, day_of(2026, 1, 25), day_of(2026, 2, 5)), 0);
  EXPECT_EQ(f.bytes(), content);
}

TEST(EntryCounterRange, EachFieldIsBoundedByItself) {
  const std::string kept = counter_record(2024, 6, 10, 1, 1) + counter_record(2027, 6, 10, 1, 1) +
                           counter_record(2025, 4, 10, 1, 1) + counter_record(2025, 8, 10, 1, 1) +
                           counter_record(2025, 6, 4, 1, 1) + counter_record(2025, 6, 21, 1, 1) +
                           counter_record(-1, 6, 10, 1, 1) + counter_record(2025, -6, 10, 1, 1);
  counter_folder f(kept + counter_record(2025, 5, 5, 1, 1) + counter_record(2026, 7, 20, 1, 1));
  EXPECT_EQ(clear_range(f, day_of(2025, 5, 5), day_of(2026, 7, 20)), 0);
  EXPECT_EQ(f.bytes(), kept + free_counter_slot() + free_counter_slot());
}

TEST(EntryCounterRange, FromLaterThanToIsAFailureThatChangesNothing) {
  const std::string content = counter_record(2026, 11, 15, 1, 1);
  counter_folder f(content);
  const debug_log_in_temp_folder log;
  EXPECT_EQ(clear_range(f, day_of(2026, 11, 16), day_of(2026, 11, 15)), -1);
  EXPECT_EQ(clear_range(f, kp_Time(2026, 11, 15, 1, 0, 0), kp_Time(2026, 11, 15, 0, 0, 0)), -1);
  EXPECT_EQ(f.bytes(), content);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(EntryCounterRange, StartsAtTheFilesPosition) {
  const std::string record = counter_record(2026, 11, 15, 1, 1);
  counter_folder f(record + record + record);
  EXPECT_EQ(fseek(f.counter.GetFilePointer(), 32, SEEK_SET), 0);
  EXPECT_EQ(f.counter.DeleteEntryElement(day_of(2026, 11, 15), day_of(2026, 11, 15)), 0);
  EXPECT_EQ(f.bytes(), record + free_counter_slot() + free_counter_slot());
}

TEST(EntryCounterRange, PositionInsideARecordStandsForTheNextOne) {
  const std::string record = counter_record(2026, 11, 15, 1, 1);
  counter_folder f(record + record);
  EXPECT_EQ(fseek(f.counter.GetFilePointer(), 1, SEEK_SET), 0);
  EXPECT_EQ(f.counter.DeleteEntryElement(day_of(2026, 11, 15), day_of(2026, 11, 15)), 0);
  EXPECT_EQ(f.bytes(), record + free_counter_slot());
}

TEST(EntryCounterRange, AfterOpeningStartsAtTheFirstRecord) {
  counter_folder f(counter_record(2026, 11, 15, 1, 1));
  EXPECT_EQ(f.counter.DeleteEntryElement(day_of(2026, 11, 15), day_of(2026, 11, 15)), 0);
  EXPECT_EQ(f.bytes(), free_counter_slot());
}

TEST(EntryCounterRange, AfterCountingStartsBehindTheRecordCounted) {
  const std::string record = counter_record(2026, 11, 15, 1, 1);
  counter_folder f(record + counter_record(2026, 11, 15, 2, 1) + record);
  EXPECT_EQ(f.counter.IncreaseCount(2026, 11, 15, 2), 0);
  EXPECT_EQ(f.counter.DeleteEntryElement(day_of(2026, 11, 15), day_of(2026, 11, 15)), 0);
  EXPECT_EQ(f.bytes(), record + counter_record(2026, 11, 15, 2, 2) + free_counter_slot());
}

TEST(EntryCounterRange, AfterASearchWithoutResultFindsNothing) {
  const std::string record = counter_record(2026, 11, 15, 1, 1);
  counter_folder f(record);
  EXPECT_EQ(f.counter.DeleteEntryElement(2026, 11, 15, 2), 0);
  EXPECT_EQ(f.counter.DeleteEntryElement(day_of(2026, 11, 15), day_of(2026, 11, 15)), 0);
  EXPECT_EQ(f.bytes(), record);
}

TEST(EntryCounterRange, ClearsManyRecordsOfALargeFile) {
  std::string content;
  std::string expected;
  for (int i = 0; i < 3000; ++i) {
    content += counter_record(2026, 11, 1 + i % 30, i, 1);
    expected +=
        i % 30 >= 9 && i % 30 <= 19 ? free_counter_slot() : content.substr(content.size() - 32);
  }
  counter_folder f(content);
  EXPECT_EQ(clear_range(f, day_of(2026, 11, 10), day_of(2026, 11, 20)), 0);
  EXPECT_EQ(f.bytes(), expected);
}
