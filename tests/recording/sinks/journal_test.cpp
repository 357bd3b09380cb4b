// Journals: the stored form in dated segments.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>

#include "recording/records/stored_form.h"
#include "tests/recording/files/failing_file_calls.h"
#include "tests/recording/sinks/sink_fixture.h"

using testing::ElementsAre;
namespace fs = std::filesystem;

class Journal : public RecordSink {
 protected:
  std::unique_ptr<record_sink> journal(const std::string& options = "") {
    return make("journal:" + file("app") + options);
  }
  // The messages of a file's records, each behind a blank.
  static std::string messages_in(const std::string& lines) {
    static constexpr std::string_view key = "\"message\":\"";
    std::string messages;
    for (size_t at = lines.find(key); at != std::string::npos; at = lines.find(key, at)) {
      at += key.size();
      messages += " " + lines.substr(at, lines.find('"', at) - at);
    }
    return messages;
  }
  std::string messages(const std::string& name) const { return messages_in(content(name)); }
  // How long a record with a message of that size is.
  size_t record_size(size_t message = 1) const {
    stored_form form(options_.set_version);
    std::string line;
    const std::string text(message, 'm');
    sink_entry entry{.made = entries_.made, .message = text, .time = {}};
    EXPECT_TRUE(entry.time.set_to_string_value("2026-11-15T17:02:56+08:00"));
    form.append(line, entry);
    return line.size() + 1;
  }
};

TEST_F(Journal, EachDayHasItsSegment) {
  const auto sink = journal();
  entries_.add(*sink, "late", "2026-11-15T23:59:59+08:00");
  entries_.add(*sink, "early", "2026-11-16T00:00:00+08:00");
  sink->write(false);
  EXPECT_EQ(sink->pending(), 0U);
  EXPECT_THAT(files(), ElementsAre("app.20261115.0001.jsonl", "app.20261116.0001.jsonl"));
  EXPECT_EQ(
      content("app.20261115.0001.jsonl"),
      R"({"version":"2.0","event":17,"name":"M17","level":3,"time":"2026-11-15T23:59:59+08:00",)"
      R"("attributes":{},"types":{},"message_index":0,"message":"late"})"
      "\n");
  EXPECT_EQ(messages("app.20261116.0001.jsonl"), " early");
}

TEST_F(Journal, ASegmentTakesRecordsUpToItsSizeExactly) {
  const size_t two = 2 * record_size();
  write(*journal(",max-size=" + std::to_string(two)), {"a", "b", "c"});
  EXPECT_EQ(messages("app.20261115.0001.jsonl"), " a b");
  EXPECT_EQ(messages("app.20261115.0002.jsonl"), " c");
  write(*journal(",max-size=" + std::to_string(two - 1)), {"d", "e"});
  EXPECT_EQ(messages("app.20261115.0002.jsonl"), " c");
  EXPECT_EQ(messages("app.20261115.0003.jsonl"), " d");
  EXPECT_EQ(messages("app.20261115.0004.jsonl"), " e");
}

TEST_F(Journal, ARecordThatIsLongerThanASegmentHasOneOfItsOwn) {
  write(*journal(",max-size=1"), {"a", "b"});
  EXPECT_EQ(messages("app.20261115.0001.jsonl"), " a");
  EXPECT_EQ(messages("app.20261115.0002.jsonl"), " b");
}

TEST_F(Journal, LastSerialOfADayTakesAllThatComes) {
  folder_.write("app.20261115.9999.jsonl", "");
  const auto sink = journal(",max-size=1");
  write(*sink, {"a", "b"});
  write(*sink, {"c"});
  EXPECT_THAT(files(), ElementsAre("app.20261115.9999.jsonl"));
  EXPECT_EQ(messages("app.20261115.9999.jsonl"), " a b c");
}

TEST_F(Journal, SegmentsHaveTheirModeWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{077}}) {
    const mode_t before = umask(mask);
    write(*journal(",max-size=1"), {"a"});
    umask(before);
  }
  for (const char* name : {"app.20261115.0001.jsonl", "app.20261115.0002.jsonl"})
    EXPECT_EQ(fs::status(file(name)).permissions(), fs::perms(0640)) << name;
}

TEST_F(Journal, SerialsOfCompressedSegmentsAreNotUsedAgain) {
  for (const char* name :
       {"app.20261115.0001.jsonl.zst", "app.20261115.0002.jsonl.gz", "app.20261115.0003.jsonl",
        // Neither a segment nor a compressed one.
        "app.20261115.0004", "app.20261115.0005.gz", "app.20261115.0006.jsonl.zst.part",
        "app.20261115.0007.jsonl.index", "app.20261115.0008.jsonlx", "app-b.20261115.0009.jsonl"})
    folder_.write(name, "");
  const auto sink = journal(",max-size=1");
  write(*sink, {"a", "b"});
  EXPECT_EQ(messages("app.20261115.0003.jsonl"), " a");
  EXPECT_EQ(messages("app.20261115.0004.jsonl"), " b");
  fs::rename(file("app.20261115.0004.jsonl"), file("app.20261115.0004.jsonl.zst"));
  write(*sink, {"c"});
  EXPECT_EQ(messages("app.20261115.0005.jsonl"), " c");
}

// Text logs and a journal of one name have one lock, and one folder.
TEST_F(Journal, TextLogsOfItsNameAreNeitherClosedByItNorTheOtherWayRound) {
  const auto logs = text();
  const auto sink = journal();
  for (const char* message : {"a", "b"}) {
    write(*logs, {message});
    write(*sink, {message});
    logs->reopen();
    sink->reopen();
  }
  EXPECT_THAT(files(), ElementsAre("app.20261115.0001", "app.20261115.0001.jsonl"));
  EXPECT_EQ(content("app.20261115.0001"), line("a") + line("b"));
  EXPECT_EQ(messages("app.20261115.0001.jsonl"), " a b");
}

TEST_F(Journal, AnUnfinishedRecordIsCutOffAndReported) {
  const auto sink = journal();
  write(*sink, {"a"});
  folder_.write("app.20261115.0001.jsonl", content("app.20261115.0001.jsonl") + "{\"version\":\"2");
  write(*sink, {"b"});
  EXPECT_EQ(messages("app.20261115.0001.jsonl"), " a b");
  EXPECT_THAT(notes_, ElementsAre(file("app.20261115.0001.jsonl") +
                                  ": an unfinished line was cut off, 13 bytes without an end of "
                                  "line"));
}

TEST_F(Journal, WhatIsNoRecordIsLeftAlone) {
  folder_.write("app.20261115.0001.jsonl", "a line\nno end");
  const auto sink = journal();
  entries_.add(*sink, "m");
  EXPECT_EQ(write_error(*sink), "cannot append to " + file("app.20261115.0001.jsonl") +
                                    ": its last 6 bytes without an end of line are no line of "
                                    "this program's");
  EXPECT_EQ(content("app.20261115.0001.jsonl"), "a line\nno end");
}

TEST_F(Journal, TheNoteOfADeadProcessLeadsToItsUnfinishedRecord) {
  folder_.write("app.20261114.0003.jsonl", "old\nunfin");
  folder_.write("app.20261113.0001.jsonl", "no end");
  folder_.write("app_lock", "kplog lock\napp.20261114.0003.jsonl");
  journal();
  EXPECT_EQ(content("app.20261114.0003.jsonl"), "old\n");
  EXPECT_EQ(content("app.20261113.0001.jsonl"), "no end");
  EXPECT_EQ(notes_.size(), 1U);
}

TEST_F(Journal, ABatchThatDoesNotFitOnTheDiskIsTakenBackFromAllSegments) {
  const size_t size = record_size();
  const auto sink = journal(",max-size=" + std::to_string(2 * size));
  write(*sink, {"a"});
  for (const char* message : {"b", "c", "d"}) entries_.add(*sink, message);
  entries_.add(*sink, "e", "2026-11-14T17:02:56+08:00");
  entries_.add(*sink, std::string(4 * size, 'x'));
  {
    const small_disk limit(static_cast<rlim_t>(3 * size));
    EXPECT_EQ(write_error(*sink),
              "cannot write " + file("app.20261115.0003.jsonl") + ": File too large");
  }
  EXPECT_THAT(files(), ElementsAre("app.20261115.0001.jsonl"));
  EXPECT_EQ(messages("app.20261115.0001.jsonl"), " a");
  sink->write(false);
  EXPECT_EQ(messages("app.20261115.0001.jsonl"), " a b");
  EXPECT_EQ(messages("app.20261115.0002.jsonl"), " c d");
  EXPECT_EQ(files().size(), 4U);
}
