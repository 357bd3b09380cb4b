// What becomes of a journal's segments, also when processes die, fail, and meet.
#include "recording/journal/upkeep.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zstd.h>

#include <filesystem>

#include "recording/journal/sent_positions.h"
#include "tests/recording/files/failing_file_calls.h"
#include "tests/recording/sinks/sink_entries.h"
#include "tests/support/ending.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;
using std::chrono::hours;

static std::string lines_of_records(int from, int count) {
  std::string lines;
  for (int number = from; number < from + count; ++number)
    lines += R"({"version":"2.0","event":)" + std::to_string(number % 3) +
             R"(,"level":3,"time":"2026-11-15T17:02:56+08:00","message":"record )" +
             std::to_string(number) + "\"}\n";
  return lines;
}

class JournalUpkeep : public testing::Test {
 protected:
  static constexpr const char* one = "app.20261115.0001.jsonl";
  static constexpr const char* two = "app.20261115.0002.jsonl";
  static constexpr const char* last = "app.20261116.0001.jsonl";

  // Segments of two days, of which the first two are done.
  void prepare() {
    for (const std::string& name : all_files_in(folder_.path())) fs::remove_all(file(name));
    write(one, lines_of_records(0, 40), 30);
    write(two, lines_of_records(40, 40), 20);
    write(last, lines_of_records(80, 5), 0);
  }
  // As it was written so many hours ago.
  void write(const std::string& name, const std::string& content, int hours_ago) const {
    folder_.write(name, content);
    const auto now = fs::file_time_type::clock::now();
    fs::last_write_time(file(name), now - hours(hours_ago));
  }
  std::string file(const std::string& name) const { return folder_.file(name); }
  std::string content(const std::string& name) const { return read_whole_file(file(name)); }
  std::vector<std::string> files() const { return files_in(folder_.path()); }
  static std::string decompressed(const std::string& bytes) {
    std::string content(ZSTD_getFrameContentSize(bytes.data(), bytes.size()), '\0');
    EXPECT_EQ(ZSTD_decompress(content.data(), content.size(), bytes.data(), bytes.size()),
              content.size());
    return content;
  }
  // What a reader finds: of a segment that has both forms the plain one.
  std::string all_lines() const {
    std::string lines;
    const std::vector<std::string> names = files();
    for (const std::string& name : names) {
      if (name.ends_with(".jsonl")) lines += content(name);
      const bool is_compressed = name.ends_with(".zst");
      const std::string plain = name.substr(0, name.size() - 4);
      if (is_compressed && !fs::exists(file(plain))) lines += decompressed(content(name));
    }
    return lines;
  }
  journal_upkeep upkeep(const journal_rules& rules) const {
    return journal_upkeep({folder_.path(), "app"}, rules);
  }
  // Everything that is to be done.
  void keep_up(const journal_rules& rules) const {
    journal_upkeep all = upkeep(rules);
    while (all.step().count() == 0) {
    }
  }
  // The same, with what fails on the way.
  std::vector<std::string> failures_of(const journal_rules& rules) const {
    std::vector<std::string> failures;
    journal_upkeep all = upkeep(rules);
    for (bool has_more = true; has_more;) try {
        has_more = all.step().count() == 0;
      } catch (const file_error& error) {
        failures.emplace_back(error.what());
      }
    return failures;
  }
  std::optional<segment_index> index(const std::string& name) const {
    return segment_index_of(content(name + ".index"));
  }

  static constexpr journal_rules compressing = {.compresses = true};
  const std::string all_ = lines_of_records(0, 85);
  temp_folder folder_;
};

// --- What a death left

TEST_F(JournalUpkeep, AnUnfinishedLineIsNotCompressed) {
  for (const std::string& tail :
       {std::string(R"({"version":"2.0","ev)"), std::string(4096, '\0')}) {
    prepare();
    write(one, lines_of_records(0, 40) + tail, 30);
    std::string told;
    append_rules rules;
    rules.report = [&told](const std::string& text) { told += text; };
    journal_upkeep all({folder_.path(), "app", rules}, compressing);
    while (all.step().count() == 0) {
    }
    EXPECT_EQ(decompressed(content(std::string(one) + ".zst")), lines_of_records(0, 40));
    ASSERT_TRUE(index(one));
    EXPECT_EQ(index(one)->others, 0u);
    EXPECT_THAT(told, HasSubstr(one));
  }
}

// --- Indexes

TEST_F(JournalUpkeep, MakesAnIndexOfEachSegment) {
  prepare();
  keep_up({});
  EXPECT_THAT(files(),
              ElementsAre(one, std::string(one) + ".index", two, std::string(two) + ".index", last,
                          std::string(last) + ".index"));
  const auto found = index(two);
  ASSERT_TRUE(found);
  EXPECT_TRUE(found->fits(two, content(two).size()));
  EXPECT_EQ(found->records, 40U);
  EXPECT_EQ(text_of_instant(found->first), "2026-11-15T09:02:56Z");
}

TEST_F(JournalUpkeep, MakesIndexesAnewThatDoNotFit) {
  prepare();
  keep_up({});
  const std::string sound = content(std::string(two) + ".index");
  const std::string name = std::string(two) + ".index";
  for (const std::string& other :
       {std::string(), sound.substr(0, 20), sound + "\n", content(std::string(one) + ".index"),
        std::string(100000, '\0')}) {
    folder_.write(name, other);
    keep_up({});
    EXPECT_EQ(content(name), sound);
  }
  fs::remove(file(name));
  keep_up({});
  EXPECT_EQ(content(name), sound);
}

TEST_F(JournalUpkeep, FollowsASegmentThatGrows) {
  prepare();
  for (int number = 85; number < 90; ++number) {
    write(last, content(last) + lines_of_records(number, 1), 0);
    keep_up({});
    ASSERT_TRUE(index(last));
    EXPECT_TRUE(index(last)->fits(last, content(last).size()));
    EXPECT_EQ(index(last)->records, static_cast<uint64_t>(number - 80 + 1));
  }
  write(last, lines_of_records(0, 1), 0);  // and one that was cut
  keep_up({});
  EXPECT_EQ(index(last)->records, 1U);
}

TEST_F(JournalUpkeep, CutsAnUnfinishedRecordOffBeforeItLooks) {
  prepare();
  folder_.write("app_lock", "kplog lock\n" + std::string(last));
  write(last, lines_of_records(80, 5) + "{\"ver", 0);
  keep_up({});
  EXPECT_EQ(all_lines(), all_);
  EXPECT_TRUE(index(last)->fits(last, content(last).size()));
}

TEST_F(JournalUpkeep, LeavesWhatIsInOrderAlone) {
  prepare();
  keep_up(compressing);
  const auto inode = [&](const std::string& name) {
    struct stat status {};
    EXPECT_EQ(stat(file(name).c_str(), &status), 0) << name;
    return status.st_ino;
  };
  std::vector<ino_t> before, after;
  for (const std::string& name : files()) before.push_back(inode(name));
  keep_up(compressing);
  for (const std::string& name : files()) after.push_back(inode(name));
  EXPECT_EQ(before, after);
}

// --- Compressed segments

TEST_F(JournalUpkeep, CompressesWhatIsDone) {
  prepare();
  const auto written = fs::last_write_time(file(one));
  fs::permissions(file(one), fs::perms(0600));
  keep_up(compressing);
  EXPECT_THAT(files(), ElementsAre(std::string(one) + ".index", std::string(one) + ".zst",
                                   std::string(two) + ".index", std::string(two) + ".zst", last,
                                   std::string(last) + ".index"));
  EXPECT_EQ(all_lines(), all_);
  EXPECT_EQ(fs::last_write_time(file(std::string(one) + ".zst")), written);
  EXPECT_EQ(fs::status(file(std::string(one) + ".zst")).permissions(), fs::perms(0600));
  const std::string compressed = content(std::string(one) + ".zst");
  EXPECT_TRUE(index(one)->fits(std::string(one) + ".zst", compressed.size()));
  EXPECT_EQ(index(one)->lines, lines_of_records(0, 40).size());
  // One frame, whose head says that a check sum is at its end.
  EXPECT_EQ(ZSTD_findFrameCompressedSize(compressed.data(), compressed.size()), compressed.size());
  EXPECT_NE(compressed[4] & 4, 0);
}

// More may come for its day, and nothing can be written behind it.
TEST_F(JournalUpkeep, LeavesTheLastSegmentThatADayCanHaveUncompressed) {
  prepare();
  const std::string name = "app.20261101.9999.jsonl";
  write("app.20261101.9998.jsonl", lines_of_records(0, 5), 101);
  write(name, lines_of_records(5, 5), 100);
  keep_up(compressing);
  EXPECT_TRUE(fs::exists(file("app.20261101.9998.jsonl.zst")));
  EXPECT_EQ(content(name), lines_of_records(5, 5));
  EXPECT_FALSE(fs::exists(file(name + ".zst")));
}

TEST_F(JournalUpkeep, MakesTheIndexOfACompressedSegmentAnew) {
  prepare();
  keep_up(compressing);
  const std::string name = std::string(one) + ".index";
  const std::string sound = content(name);
  fs::remove(file(name));
  keep_up({});
  EXPECT_EQ(content(name), sound);
}

TEST_F(JournalUpkeep, WhatIsWrittenToIsNotDone) {
  write(one, lines_of_records(0, 5), 0);  // its day is not over, perhaps
  write(last, lines_of_records(5, 5), 0);
  keep_up(compressing);
  EXPECT_FALSE(fs::exists(file(std::string(one) + ".zst")));
  EXPECT_FALSE(fs::exists(file(std::string(last) + ".zst")));
  // A later day that nobody has written to for long says nothing of the day before.
  write(last, lines_of_records(5, 5), 50);
  keep_up(compressing);
  EXPECT_TRUE(fs::exists(file(one)));
  EXPECT_TRUE(fs::exists(file(std::string(last) + ".zst")));
}

TEST_F(JournalUpkeep, LargeSegmentsGoPartByPart) {
  const std::string lines = lines_of_records(0, 60000);
  ASSERT_GT(lines.size(), 4 * segment_part);
  write(one, lines, 20);
  write(last, lines_of_records(60000, 1), 0);
  keep_up(compressing);
  EXPECT_EQ(decompressed(content(std::string(one) + ".zst")), lines);
  EXPECT_EQ(index(one)->records, 60000U);
  fs::remove(file(std::string(one) + ".index"));
  keep_up(compressing);
  EXPECT_EQ(index(one)->records, 60000U);
}

// Several frames, which other programs write without check sums and sizes.
TEST_F(JournalUpkeep, ReadsWhatOtherProgramsHaveCompressed) {
  const std::string first = lines_of_records(0, 20000), second = lines_of_records(20000, 20000);
  std::string frames;
  for (const std::string& lines : {first, second}) {
    std::string frame(ZSTD_compressBound(lines.size()), '\0');
    frame.resize(ZSTD_compress(frame.data(), frame.size(), lines.data(), lines.size(), 1));
    frames += frame;
  }
  const std::string name = std::string(one) + ".zst";
  write(name, frames, 20);
  for (const size_t part : {size_t{1} << 20, size_t{997}}) {
    segment_reader reader(open_descriptor(open(file(name).c_str(), O_RDONLY | O_CLOEXEC)), name,
                          true);
    std::string read;
    for (std::string_view bytes = reader.read(part); !bytes.empty(); bytes = reader.read(part))
      read += bytes;
    EXPECT_TRUE(read == first + second) << part;
  }
  keep_up({});
  EXPECT_EQ(index(one)->records, 40000U);
  fs::remove(file(std::string(one) + ".index"));
  write(name, frames.substr(0, frames.size() - 1), 20);
  EXPECT_THAT(failures_of({}), ElementsAre("cannot read " + file(name) + ": its end is missing"));
}

TEST_F(JournalUpkeep, HalfOfACompressedSegmentIsTakenAway) {
  prepare();
  for (const std::string& name : {std::string(one), std::string(last)})
    folder_.write(name + ".zst.part", "half");
  folder_.write("app.20261101.0001.jsonl.zst.part", "of nothing");
  folder_.write("app.20261101.0002.jsonl.index", "of nothing");
  folder_.write("app.20261101.0003.jsonl.index.part", "of nothing");
  keep_up({});
  EXPECT_EQ(files().size(), 6U);
  EXPECT_EQ(all_lines(), all_);
}

TEST_F(JournalUpkeep, WhatAnotherProcessCompressesIsLeftToIt) {
  prepare();
  const std::string unfinished = std::string(one) + ".zst.part";
  folder_.write(unfinished, "half");
  const int held = open(file(unfinished).c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  keep_up(compressing);
  EXPECT_EQ(content(unfinished), "half");
  EXPECT_TRUE(fs::exists(file(one)));
  EXPECT_TRUE(fs::exists(file(std::string(two) + ".zst")));
  close(held);
  keep_up(compressing);
  EXPECT_FALSE(fs::exists(file(unfinished)));
  EXPECT_EQ(all_lines(), all_);
  EXPECT_TRUE(fs::exists(file(std::string(one) + ".zst")));
}

TEST_F(JournalUpkeep, WhatIsWrittenMeanwhileIsNotLost) {
  prepare();
  journal_upkeep working = upkeep(compressing);
  std::string added;
  for (int steps = 0; working.step().count() == 0; ++steps) {
    const std::string more = lines_of_records(1000 + steps, 1);
    if (!fs::exists(file(one))) continue;
    write(one, content(one) + more, 20);
    added += more;
  }
  keep_up(compressing);
  EXPECT_EQ(all_lines(), lines_of_records(0, 40) + added + lines_of_records(40, 45));
}

TEST_F(JournalUpkeep, ACompressedFormThatHoldsSomethingElseIsLeftAloneAndTold) {
  for (const std::string& other :
       {lines_of_records(0, 39), lines_of_records(0, 41), lines_of_records(1, 40), std::string()}) {
    prepare();
    std::string compressed(ZSTD_compressBound(other.size()), '\0');
    compressed.resize(
        ZSTD_compress(compressed.data(), compressed.size(), other.data(), other.size(), 3));
    folder_.write(std::string(one) + ".zst", compressed);
    EXPECT_THAT(failures_of(compressing),
                ElementsAre("cannot compress " + file(one) +
                            ": a compressed form is there, which holds something else"));
    EXPECT_EQ(content(std::string(one) + ".zst"), compressed);
    EXPECT_EQ(all_lines(), all_);
    EXPECT_TRUE(fs::exists(file(std::string(two) + ".zst")));
  }
}

TEST_F(JournalUpkeep, NeighboursAreLeftAlone) {
  prepare();
  write("app.20261115.0001", "a text log\n", 2000);
  write("app.20261115.0001.gz", "compressed", 2000);
  write("app.20261101.0001.jsonl.gz", "compressed", 2000);
  write("app-2.20261101.0001.jsonl", lines_of_records(0, 1), 2000);
  write("ap.20261101.0001.jsonl", lines_of_records(0, 1), 2000);
  write("app.20261101.1.jsonl", "x", 2000);
  write("app.20261101.0001.jsonl.index.old", "x", 2000);
  fs::create_directory(file("app.20261102.0001.jsonl"));
  fs::create_symlink("ap.20261101.0001.jsonl", file("app.20261103.0001.jsonl"));
  const std::vector<std::string> before = files();
  journal_rules rules = compressing;
  rules.keep = std::chrono::seconds(1);
  rules.keep_size = 1;
  keep_up(rules);
  for (const std::string& name : before)
    EXPECT_EQ(fs::exists(fs::symlink_status(file(name))), name != one && name != two) << name;
  EXPECT_EQ(files().size(), before.size() - 2 + 1);
}

TEST_F(JournalUpkeep, ASegmentThatCannotBeReadDoesNotKeepTheOthersWaiting) {
  prepare();
  fs::create_hard_link(file(one), file("link"));
  folder_.write("app.20261114.0001.jsonl.zst", "no frame");
  EXPECT_THAT(
      failures_of(compressing),
      testing::UnorderedElementsAre(
          "cannot append to " + file(one) + ": it has 2 names (hard links), and may have one",
          HasSubstr("cannot read " + file("app.20261114.0001.jsonl.zst") + ": ")));
  EXPECT_TRUE(fs::exists(file(std::string(two) + ".zst")));
  EXPECT_EQ(content("app.20261114.0001.jsonl.zst"), "no frame");
}

// --- Segments that go

static journal_segment segment_of(unsigned serial, time_t written, uintmax_t size) {
  journal_segment segment;
  segment.day = {2026, 11, 15};
  segment.serial = serial;
  segment.name = std::to_string(serial);
  segment.plain = segment_file{size, {written, 0}};
  return segment;
}

static std::string names_of(const std::vector<journal_segment>& segments) {
  std::string names;
  for (const journal_segment& segment : segments) names += segment.name + " ";
  return names;
}

TEST(OutlivedSegments, AreThoseThatWereWrittenToTooLongAgo) {
  const std::vector<journal_segment> segments = {segment_of(1, 100, 1), segment_of(2, 50, 1),
                                                 segment_of(3, 101, 1), segment_of(4, 102, 1)};
  const journal_rules rules = {.keep = std::chrono::seconds(10)};
  EXPECT_EQ(names_of(outlived(segments, rules, {110, 0})), "2 ");
  EXPECT_EQ(names_of(outlived(segments, rules, {110, 1})), "2 1 ");
  EXPECT_EQ(names_of(outlived(segments, rules, {1000, 0})), "2 1 3 ");
  EXPECT_EQ(names_of(outlived(segments, rules, {0, 0})), "");
  EXPECT_EQ(names_of(outlived(segments, {}, {1000000, 0})), "");
  EXPECT_EQ(names_of(outlived({}, rules, {1000000, 0})), "");
}

TEST(OutlivedSegments, AreTheOldestOfTooMany) {
  const std::vector<journal_segment> segments = {segment_of(1, 100, 10), segment_of(2, 50, 20),
                                                 segment_of(3, 100, 30), segment_of(4, 102, 40)};
  const auto beyond = [&](uintmax_t size) {
    return names_of(outlived(segments, {.keep_size = size}, {110, 0}));
  };
  EXPECT_EQ(beyond(100), "");
  EXPECT_EQ(beyond(99), "2 ");
  EXPECT_EQ(beyond(80), "2 ");
  EXPECT_EQ(beyond(79), "2 1 ");
  EXPECT_EQ(beyond(70), "2 1 ");
  EXPECT_EQ(beyond(69), "2 1 3 ");
  EXPECT_EQ(beyond(1), "2 1 3 ");  // never the last
}

// What is written now is not removed for what a clock that was wrong left.
TEST(OutlivedSegments, AreFirstThoseOfAClockThatWasWrong) {
  const std::vector<journal_segment> segments = {segment_of(1, 9000, 10), segment_of(2, 50, 10),
                                                 segment_of(3, 169, 10), segment_of(4, 171, 10)};
  EXPECT_EQ(names_of(outlived(segments, {.keep_size = 30}, {110, 0})), "4 ");
  EXPECT_EQ(names_of(outlived(segments, {.keep_size = 10}, {110, 0})), "4 1 2 ");
  EXPECT_EQ(names_of(outlived(segments, {.keep = std::chrono::seconds(10)}, {110, 0})), "");
}

TEST_F(JournalUpkeep, WhatHasOutlivedItsTimeGoesWithItsIndex) {
  prepare();
  keep_up(compressing);
  journal_rules rules = compressing;
  rules.keep = hours(25);
  keep_up(rules);
  EXPECT_THAT(files(), ElementsAre(std::string(two) + ".index", std::string(two) + ".zst", last,
                                   std::string(last) + ".index"));
  rules.keep = hours(1);
  keep_up(rules);
  EXPECT_THAT(files(), ElementsAre(last, std::string(last) + ".index"));
}

// --- Deaths, failures, full disks

#ifdef KP_FAULTS

TEST_F(JournalUpkeep, EndingAtAnyCallLosesAndDoublesNothing) {
  unsigned n = 1;
  for (bool is_ended = true; is_ended; ++n) {
    prepare();
    is_ended = ends_at_call(n, [&] { keep_up(compressing); });
    EXPECT_EQ(all_lines(), all_) << n;
    keep_up(compressing);
    EXPECT_EQ(all_lines(), all_) << n;
    EXPECT_EQ(files().size(), 6U) << n;
    EXPECT_FALSE(fs::exists(file(one))) << n;
  }
  EXPECT_GT(n, 100U);
}

TEST_F(JournalUpkeep, EndingAtAnyCallWhileSegmentsGoLeavesNoStray) {
  journal_rules rules = compressing;
  rules.keep = hours(1);
  unsigned n = 1;
  for (bool is_ended = true; is_ended; ++n) {
    prepare();
    keep_up(compressing);
    is_ended = ends_at_call(n, [&] { keep_up(rules); });
    EXPECT_TRUE(fs::exists(file(last)));
    keep_up(rules);
    EXPECT_THAT(files(), ElementsAre(last, std::string(last) + ".index")) << n;
  }
}

TEST_F(JournalUpkeep, AnyCallMayFail) {
  prepare();
  for_each_failing_file_call(
      1, [&] { keep_up(compressing); },
      [&](const std::string& text) {
        EXPECT_EQ(all_lines(), all_) << text;
        keep_up(compressing);
        EXPECT_EQ(all_lines(), all_) << text;
        EXPECT_EQ(files().size(), 6U) << text;
        prepare();
      });
}

#endif

TEST_F(JournalUpkeep, AFullDiskLeavesTheSegments) {
  for (rlim_t room = 11; room < 700; room += 53) {
    prepare();
    {
      const small_disk limit(room);
      failures_of(compressing);
    }
    EXPECT_EQ(all_lines(), all_) << room;
    keep_up(compressing);
    EXPECT_EQ(all_lines(), all_) << room;
    EXPECT_EQ(files().size(), 6U) << room;
  }
}

// --- Engines that are waited for

TEST_F(JournalUpkeep, KeepWaitsForEnginesAndKeepSizeDoesNot) {
  const journal_rules old = {.keep = hours(24)};
  const auto sent = [this](const std::string& name, uint64_t bytes, const std::string& to) {
    sent_positions positions{.to = to, .host = "web1"};
    positions.segments[name].position = {name, 1, {.lines = 40, .bytes = bytes}};
    write(sent_positions_name("app", to, "web1"), text_of(positions), 0);
  };
  prepare();
  sent(one, lines_of_records(0, 40).size() - 1, "nats://a");
  keep_up(old);
  EXPECT_TRUE(fs::exists(file(one))) << "its last line was not sent";
  sent(one, lines_of_records(0, 40).size(), "nats://a");
  write(sent_positions_name("app", "nats://b", "web1"), "damaged", 0);
  keep_up(old);
  EXPECT_TRUE(fs::exists(file(one))) << "a damaged file says that nothing was sent";
  sent(one, lines_of_records(0, 40).size(), "nats://b");
  keep_up(old);
  EXPECT_FALSE(fs::exists(file(one)));
  EXPECT_TRUE(fs::exists(file(two)));
  std::vector<std::string> told;
  journal_upkeep all({folder_.path(), "app"}, {.keep_size = 1},
                     [&told](const std::string& text) { told.push_back(text); });
  while (all.step().count() == 0) {
  }
  EXPECT_FALSE(fs::exists(file(two)));
  EXPECT_THAT(
      told,
      ElementsAre(file(two) + " is removed to keep the journal's size, before all of it was sent"));
}
