// Counts that several processes keep in one file, beside the library's own searches.
#include "recording/sinks/counter_index.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <random>

#include "recording/files/file_error.h"
#include "recording/files/shared_file.h"
#include "recording/sinks/counter_writer.h"
#include "tests/support/counter_folder.h"
#include "tests/support/raised_by.h"

namespace fs = std::filesystem;

static kp_Time day_of(int number) {
  return kp_Time(2026, 11, static_cast<unsigned short>(number), 12, 0, 0);
}

class CounterIndex : public testing::Test {
 protected:
  void write(const std::string& bytes) const { folder_.write("c.cnt", bytes); }
  std::string bytes() const { return read_whole_file(folder_.file("c.cnt")); }
  // Counts of the 15th.
  static void count(counter_writer& counts, uint32_t id, int entries = 1) {
    for (int i = 0; i < entries; ++i) counts.add(day_of(15), id);
    counts.write(false);
  }

  temp_folder folder_;
};

TEST_F(CounterIndex, AFailedReadIsNotTakenForTheEndOfTheFile) {
  write(counter_record(2026, 11, 15, 1, 1));
  const int file = open(folder_.file("c.cnt").c_str(), O_WRONLY);
  struct stat status {};
  fstat(file, &status);
  counter_index index(folder_.file("c.cnt"));
  EXPECT_EQ(raised_by<file_error>([&] { index.follow(file, status); }),
            "cannot count in " + folder_.file("c.cnt") + ": Bad file descriptor");
  close(file);
}

TEST_F(CounterIndex, AFileThatIsNoCounterIsLeftAlone) {
  const std::string sound = counter_record(2026, 11, 15, 1, 1);
  std::string other_length = sound;
  other_length[3] = 33;
  for (const std::string& wrong : {std::string("no counter"), sound + std::string(40, 'x'),
                                   other_length, sound + sound + other_length}) {
    write(wrong);
    EXPECT_THAT(raised_by<file_error>([&] { counter_writer counts(folder_.file("c")); }),
                testing::StartsWith("cannot count in " + folder_.file("c.cnt") +
                                    ": it is no counter file; what begins at byte "));
    EXPECT_EQ(bytes(), wrong);
    EXPECT_FALSE(fs::exists(folder_.file("c_lock")));
  }
  EXPECT_EQ(raised_by<file_error>([&] {
              write(sound + other_length);
              counter_writer counts(folder_.file("c"));
            }),
            "cannot count in " + folder_.file("c.cnt") +
                ": it is no counter file; what begins at byte 32 is a record of 33 bytes by its "
                "own account, and records have 32");
}

TEST_F(CounterIndex, ZerosAndTornRecordsAreThoseOfACounter) {
  const std::string sound = counter_record(2026, 11, 15, 1, 1);
  for (size_t torn = 0; torn < 32; ++torn) {
    for (const std::string& tail : {std::string(torn, '\0'), sound.substr(0, torn)}) {
      write(sound + tail);
      counter_writer counts(folder_.file("c"));
      count(counts, 1);
      EXPECT_EQ(bytes(), counter_record(2026, 11, 15, 1, 2) + tail);
      for (const uint32_t id : {2U, 3U, 2U}) counts.add(day_of(15), id);
      counts.write(false);
      count(counts, 3);
      EXPECT_EQ(count_in(bytes(), 2026, 11, 15, 2), 2) << torn;
      EXPECT_EQ(count_in(bytes(), 2026, 11, 15, 3), 2) << torn;
      EXPECT_EQ(count_in(bytes(), 2026, 11, 15, 1), 2) << torn;
    }
  }
}

// What others do between two batches.
TEST_F(CounterIndex, ChangesOfOthersAreFollowed) {
  counter_writer ours(folder_.file("c"));
  counter_writer others(folder_.file("c"));
  count(ours, 1);
  count(others, 1);
  count(others, 2);
  count(ours, 2, 3);
  EXPECT_EQ(bytes(), counter_record(2026, 11, 15, 1, 2) + counter_record(2026, 11, 15, 2, 4));
  // A record moves.
  write(counter_record(2026, 11, 15, 2, 4) + counter_record(2026, 11, 15, 1, 2));
  count(ours, 2);
  EXPECT_EQ(bytes(), counter_record(2026, 11, 15, 2, 5) + counter_record(2026, 11, 15, 1, 2));
  // A slot becomes free, and is another's.
  write(counter_record(2026, 11, 15, 7, 9) + counter_record(2026, 11, 15, 1, 2));
  count(ours, 7);
  EXPECT_EQ(bytes(), counter_record(2026, 11, 15, 7, 10) + counter_record(2026, 11, 15, 1, 2));
  // The file is moved away, and cut short.
  fs::rename(folder_.file("c.cnt"), folder_.file("old.cnt"));
  count(ours, 1);
  EXPECT_EQ(bytes(), counter_record(2026, 11, 15, 1, 1));
  write("");
  count(ours, 1);
  EXPECT_EQ(bytes(), counter_record(2026, 11, 15, 1, 1));
}

// Lock and folder stay open between two batches, and are found anew where others changed them.
TEST_F(CounterIndex, ALockOrFolderOfAnotherIsTakenInstead) {
  fs::create_directory(folder_.file("day"));
  const std::string file = folder_.file("day/c.cnt");
  std::optional<folder_lock> other;
  // Asked once while the other one holds the lock, which it then leaves.
  counter_writer counts(file, {.is_to_end = [&] {
                          other.reset();
                          return false;
                        }});
  count(counts, 1);
  // The lock is removed, and somebody else has a new one.
  fs::remove(folder_.file("day/c_lock"));
  other.emplace(folder_.file("day"), "c");
  other->keep();
  count(counts, 1);
  EXPECT_FALSE(other.has_value());
  EXPECT_TRUE(fs::exists(folder_.file("day/c_lock")));
  EXPECT_EQ(read_whole_file(file), counter_record(2026, 11, 15, 1, 2));
  // What has the lock's name is no lock.
  fs::remove(folder_.file("day/c_lock"));
  folder_.write("day/c_lock", "precious");
  EXPECT_THROW(count(counts, 1), file_error);
  EXPECT_EQ(read_whole_file(folder_.file("day/c_lock")), "precious");
  EXPECT_EQ(read_whole_file(file), counter_record(2026, 11, 15, 1, 2));
  fs::remove(folder_.file("day/c_lock"));
  // The folder is moved away, and another one has its path.
  counts.write(false);
  EXPECT_EQ(read_whole_file(file), counter_record(2026, 11, 15, 1, 3));
  count(counts, 1);
  fs::rename(folder_.file("day"), folder_.file("old"));
  fs::create_directory(folder_.file("day"));
  count(counts, 1);
  EXPECT_EQ(read_whole_file(file), counter_record(2026, 11, 15, 1, 1));
  EXPECT_EQ(read_whole_file(folder_.file("old/c.cnt")), counter_record(2026, 11, 15, 1, 4));
}

TEST_F(CounterIndex, ALinkMadeMeanwhileIsRefusedAndItsCountsKept) {
  counter_writer counts(folder_.file("c"));
  count(counts, 1);
  fs::create_hard_link(folder_.file("c.cnt"), folder_.file("link"));
  EXPECT_EQ(raised_by<file_error>([&] { count(counts, 1); }),
            "cannot count in " + folder_.file("c.cnt") +
                ": it has 2 names (hard links), and may have one");
  EXPECT_EQ(bytes(), counter_record(2026, 11, 15, 1, 1));
  fs::remove(folder_.file("link"));
  counts.write(false);
  EXPECT_EQ(bytes(), counter_record(2026, 11, 15, 1, 2));
}

// --- Against the library's counter, which searches the file anew for everything ---

// Adds to the first record of the key as far as a record can count.
static void add_by_search(_kp_LOG_EntryCounter& counter, const std::string& bytes, int day, int id,
                          long long entries) {
  const long long present = std::max(0LL, count_in(bytes, 2026, 11, day, id));
  const long long sum = std::min<long long>(present + entries, UINT32_MAX);
  EXPECT_EQ(counter.UpdateEntryCount(2026, 11, day, id, static_cast<int>(sum)), 0);
}

TEST_F(CounterIndex, TwoProcessesAndTheLibraryKeepWhatTheLibraryAloneWouldKeep) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const counter_folder expected;
  _kp_LOG_EntryCounter reference;
  reference.OpenEntryCounterFile(expected.folder().path().c_str(), "c");
  counter_writer first(folder_.file("c"));
  counter_writer second(folder_.file("c"));
  _kp_LOG_EntryCounter library;
  library.OpenEntryCounterFile(folder_.path().c_str(), "c");
  for (int i = 0; i < 1500 && !HasFailure(); ++i) {
    const int day = 1 + static_cast<int>(random() % 6);
    const int id = static_cast<int>(random() % 4);
    const int entries = 1 + static_cast<int>(random() % 3);
    const int what = static_cast<int>(random() % 10);
    if (what == 0) {
      library.DeleteEntryElement(2026, 11, day, id);
      reference.DeleteEntryElement(2026, 11, day, id);
    } else if (what == 1) {
      const int added =
          random() % 2 == 0 ? entries : -entries - 1;  // as unsigned close to the limit
      add_by_search(library, bytes(), day, id, static_cast<uint32_t>(added));
      add_by_search(reference, expected.bytes(), day, id, static_cast<uint32_t>(added));
    } else {
      counter_writer& counts = what % 2 == 0 ? first : second;
      for (int entry = 0; entry < entries; ++entry)
        counts.add(day_of(day), static_cast<uint32_t>(id));
      counts.write(false);
      add_by_search(reference, expected.bytes(), day, id, entries);
    }
    EXPECT_EQ(bytes(), expected.bytes()) << "step " << i;
  }
}
