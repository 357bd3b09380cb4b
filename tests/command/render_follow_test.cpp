// kplog render --follow: what is there, and what comes later.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <thread>

#include "tests/command/emit_fixture.h"
#include "tests/command/golden_file.h"

using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
namespace fs = std::filesystem;

class RenderFollow : public testing::Test {
 protected:
  static std::vector<std::string> words(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {"render",   "--definitions", "events.ldf",
                                    "--locale", "en_US",         "--follow"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }
  std::unique_ptr<running_command> follow(const std::vector<std::string>& arguments,
                                          const std::string& before = "") const {
    return std::make_unique<running_command>(folder_.path(), words(arguments), command_err::pipe,
                                             before);
  }
  void append(const std::string& name, const std::string& text) const {
    std::ofstream(folder_.path(name), std::ios::app) << text;
  }
  void emit(const std::string& options, const std::string& records) const {
    const command_result run = folder_.emit_text("-q " + options, records);
    EXPECT_EQ(run.status, 0) << run.err;
  }
  static std::vector<std::string> lines_of(running_command& run, size_t count) {
    std::vector<std::string> lines;
    for (size_t i = 0; i < count; ++i) lines.push_back(run.out_line());
    return lines;
  }
  static command_end ended(running_command& run, int signal = SIGTERM) {
    run.signal(signal);
    return run.wait_for_end();
  }
  static std::string notes(const std::string& prefix, size_t count,
                           const std::string& time = "2026-11-15T17:02:56+08:00") {
    std::string records;
    for (size_t i = 0; i < count; ++i) records += note_record(prefix + std::to_string(i), time);
    return records;
  }
  static std::vector<std::string> texts(const std::string& prefix, size_t count) {
    std::vector<std::string> lines;
    for (size_t i = 0; i < count; ++i) lines.push_back(prefix + std::to_string(i));
    return lines;
  }
  static std::vector<std::string> sorted(std::vector<std::string> lines) {
    std::sort(lines.begin(), lines.end());
    return lines;
  }

  emit_folder folder_;
};

// --- Files

TEST_F(RenderFollow, ShowsWhatIsAppendedToAFile) {
  folder_.write("records", note_record("one"));
  const auto run = follow({"records"});
  EXPECT_EQ(run->out_line(), "one");
  append("records", note_record("two"));
  EXPECT_EQ(run->out_line(), "two");
  append("records", note_record("three") + note_record("four"));
  EXPECT_EQ(run->out_line(), "three");
  EXPECT_EQ(run->out_line(), "four");
  const command_end end = ended(*run);
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.out, "");
  EXPECT_EQ(end.err, "kplog: 4 records: 4 rendered, 0 marked, 0 bad\n");
}

TEST_F(RenderFollow, AHalfLineWaitsForItsEnd) {
  folder_.write("records", note_record("one"));
  const auto run = follow({"records"});
  EXPECT_EQ(run->out_line(), "one");
  const std::string two = note_record("two");
  for (const char byte : two.substr(0, two.size() - 1)) append("records", std::string(1, byte));
  append("records", "\n" + note_record("three").substr(0, 20));
  EXPECT_EQ(run->out_line(), "two");
  const command_end end = ended(*run, SIGINT);
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.err, "kplog: 2 records: 2 rendered, 0 marked, 0 bad\n");
}

TEST_F(RenderFollow, OnlyWhatFitsIsShown) {
  folder_.write("records", note_record("one") + login_record("alice", 1));
  const auto run = follow({"records", "--event", "USER_LOGIN"});
  EXPECT_EQ(run->out_line(), "alice logged in on port 1");
  append("records", note_record("two") + login_record("bob", 2));
  EXPECT_EQ(run->out_line(), "bob logged in on port 2");
  EXPECT_EQ(ended(*run).err, "kplog: 4 records: 2 rendered, 0 marked, 0 bad, 2 left out\n");
}

TEST_F(RenderFollow, StatusTellsOfFindings) {
  folder_.write("records", note_record("one") + "no record\n");
  const auto run = follow({"records"});
  EXPECT_EQ(run->out_line(), "one");
  EXPECT_TRUE(run->wait_for_err("record-syntax"));
  append("records", "{\"event\":4711}\n");
  EXPECT_EQ(run->out_line(), "[unknown event 4711]");
  const command_end end = ended(*run);
  EXPECT_EQ(end.status, 1);
  EXPECT_THAT(end.err, EndsWith("kplog: 3 records: 1 rendered, 1 marked, 1 bad\n"));
}

// The numbers of lines are those in the file.
TEST_F(RenderFollow, BadRecordsAreToldByTheirLines) {
  folder_.write("records", note_record("one") + "\n");
  const auto run = follow({"records"});
  EXPECT_EQ(run->out_line(), "one");
  append("records", "no record\n");
  EXPECT_TRUE(run->wait_for_err("records:3:2"));
}

TEST_F(RenderFollow, FilesThatAreReplacedRemovedOrCutShortAreTold) {
  folder_.write("records", note_record("one"));
  const auto run = follow({"records", "later", "--diagnostics", "json"});
  std::string told = run->err_line() + "\n";
  EXPECT_EQ(run->out_line(), "one");
  const auto tell = [&](const std::string& shown) {
    EXPECT_EQ(run->out_line(), shown);
    told += run->err_line() + "\n";
  };
  folder_.write("next", note_record("two"));
  fs::rename(folder_.path("next"), folder_.path("records"));
  tell("two");
  folder_.write("records", "");
  told += run->err_line() + "\n";
  append("records", note_record("three"));
  EXPECT_EQ(run->out_line(), "three");
  fs::remove(folder_.path("records"));
  told += run->err_line() + "\n";
  folder_.write("records", note_record("four"));
  tell("four");
  folder_.write("later", note_record("five"));
  EXPECT_EQ(run->out_line(), "five");
  const command_end end = ended(*run);
  EXPECT_EQ(end.status, 0);
  expect_golden_file("render_follow.expected", told + end.err);
}

// What was written to a file before it was replaced is shown, too, its last half line included.
TEST_F(RenderFollow, AFileIsShownToItsEndBeforeItsSuccessor) {
  folder_.write("records", note_record("one"));
  const auto run = follow({"records"});
  EXPECT_EQ(run->out_line(), "one");
  for (int round = 0; round < 20; ++round) {
    std::string last = note_record("last");
    last.pop_back();
    append("records", notes("a", 10) + last);
    folder_.write("next", notes("b", 3));
    fs::rename(folder_.path("next"), folder_.path("records"));
    std::vector<std::string> expected = texts("a", 10);
    expected.emplace_back("last");
    for (const std::string& text : texts("b", 3)) expected.push_back(text);
    ASSERT_EQ(lines_of(*run, 14), expected) << round;
  }
  EXPECT_EQ(ended(*run).out, "");
}

TEST_F(RenderFollow, FollowsALinkToAnotherFile) {
  folder_.write("first", note_record("one"));
  folder_.write("second", note_record("two"));
  fs::create_symlink("first", folder_.path("current"));
  const auto run = follow({"current"});
  EXPECT_EQ(run->out_line(), "one");
  append("first", note_record("three"));
  EXPECT_EQ(run->out_line(), "three");
  fs::create_symlink("second", folder_.path("next"));
  fs::rename(folder_.path("next"), folder_.path("current"));
  EXPECT_EQ(run->out_line(), "two");
}

// What is followed is the name, whatever folders it leads through.
TEST_F(RenderFollow, FoldersAboveMayBeReplaced) {
  fs::create_directories(folder_.path("a/b"));
  fs::create_directories(folder_.path("first"));
  fs::create_directories(folder_.path("second"));
  fs::create_symlink("first", folder_.path("current"));
  emit("--to journal:a/b/shop", note_record("one"));
  emit("--to journal:first/shop", note_record("two"));
  const auto run = follow({"a/b/shop", "current/shop"});
  EXPECT_EQ(lines_of(*run, 2), (std::vector<std::string>{"one", "two"}));
  fs::rename(folder_.path("a"), folder_.path("away"));
  fs::create_directories(folder_.path("a/b"));
  emit("--to journal:a/b/shop", note_record("three"));
  EXPECT_EQ(run->out_line(), "three");
  fs::create_symlink("second", folder_.path("next"));
  fs::rename(folder_.path("next"), folder_.path("current"));
  emit("--to journal:second/shop", note_record("four"));
  EXPECT_EQ(run->out_line(), "four");
  EXPECT_EQ(ended(*run).status, 0);
}

TEST_F(RenderFollow, ACompressedFileIsShownAgainWhenItIsReplaced) {
  folder_.write("one", note_record("one"));
  folder_.write("two", note_record("two"));
  ASSERT_EQ(std::system(("cd " + folder_.path() + " && zstd -q one two").c_str()), 0);
  const auto run = follow({"one.zst"});
  EXPECT_EQ(run->out_line(), "one");
  fs::rename(folder_.path("two.zst"), folder_.path("one.zst"));
  EXPECT_EQ(run->out_line(), "two");
  EXPECT_TRUE(run->wait_for_err("one.zst was replaced; the new file is shown"));
}

TEST_F(RenderFollow, RefusesWhatCannotBeFollowed) {
  folder_.write("records", note_record("one"));
  fs::create_directory(folder_.path("folder"));
  const std::string render = "render --definitions events.ldf --follow records ";
  for (const char* options : {"--by event", "--until yesterday", "--until now", "--until someday",
                              "--until 2020-01-01", "- -"}) {
    const command_result refused = run_kplog(folder_.path(), render + options);
    EXPECT_EQ(refused.status, 2) << options;
    EXPECT_EQ(refused.out, "") << options;
  }
  EXPECT_THAT(run_kplog(folder_.path(), render + "--until 2020-01-01").err,
              HasSubstr("--until \"2020-01-01\" has passed, and nothing that comes can fit"));
  const command_result folder = run_kplog(folder_.path(), render + "folder");
  EXPECT_EQ(folder.status, 3);
  EXPECT_THAT(folder.err, HasSubstr("cannot read folder: Is a directory"));
}

// --- Standard input and FIFOs

TEST_F(RenderFollow, StandardInputIsReadToItsEnd) {
  const auto run = follow({});
  EXPECT_TRUE(run->send(note_record("one")));
  EXPECT_EQ(run->out_line(), "one");
  EXPECT_TRUE(run->send(note_record("two")));
  EXPECT_EQ(run->out_line(), "two");
  std::string last = note_record("last");
  last.pop_back();
  EXPECT_TRUE(run->send(last));
  const command_end end = run->wait();
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.out, "last\n");
}

TEST_F(RenderFollow, WhatCannotBeReadIsToldAndTheOthersAreShown) {
  folder_.write("records", note_record("one"));
  const auto run = follow({"-", "records"}, "exec < .");
  EXPECT_EQ(run->out_line(), "one");
  append("records", note_record("two"));
  EXPECT_EQ(run->out_line(), "two");
  const command_end end = ended(*run);
  EXPECT_EQ(end.status, 3);
  EXPECT_THAT(end.err, HasSubstr("cannot read <stdin>: Is a directory"));
}

TEST_F(RenderFollow, AFifoIsReadForEver) {
  ASSERT_EQ(mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  folder_.write("records", note_record("one"));
  const auto run = follow({"fifo", "records"});
  EXPECT_EQ(run->out_line(), "one");
  for (const char* text : {"two", "three"}) {
    append("fifo", note_record(text));
    EXPECT_EQ(run->out_line(), text);
  }
  EXPECT_EQ(ended(*run).status, 0);
}

// --- Journals

TEST_F(RenderFollow, AJournalMayComeLater) {
  const auto run = follow({"logs/today/shop"});
  EXPECT_TRUE(run->wait_for_err("logs/today/shop is no file, and no journal, by now"));
  fs::create_directories(folder_.path("logs/today"));
  emit("--to journal:logs/today/shop", note_record("one"));
  EXPECT_EQ(run->out_line(), "one");
  // A day behind, and one before.
  emit("--to journal:logs/today/shop", note_record("two", "2026-11-16T07:00:00+08:00"));
  EXPECT_EQ(run->out_line(), "two");
  emit("--to journal:logs/today/shop", note_record("three", "2026-11-14T07:00:00+08:00"));
  EXPECT_EQ(run->out_line(), "three");
  emit("--to journal:logs/today/shop", note_record("four"));
  EXPECT_EQ(run->out_line(), "four");
  const command_end end = ended(*run);
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.out, "");
}

TEST_F(RenderFollow, AJournalMayGoAndComeAgain) {
  fs::create_directory(folder_.path("logs"));
  emit("--to journal:logs/shop", note_record("one"));
  const auto run = follow({"logs/shop"});
  EXPECT_EQ(run->out_line(), "one");
  fs::rename(folder_.path("logs"), folder_.path("old"));
  fs::create_directory(folder_.path("logs"));
  emit("--to journal:logs/shop", note_record("two"));
  EXPECT_EQ(run->out_line(), "two");
  fs::remove_all(folder_.path("logs"));
  fs::create_directory(folder_.path("logs"));
  emit("--to journal:logs/shop", note_record("three"));
  EXPECT_EQ(run->out_line(), "three");
}

// 200 segments come, are compressed, and their plain forms go.
TEST_F(RenderFollow, EachRecordIsShownOnceThoughItsSegmentIsCompressed) {
  const std::string to = "--to journal:shop,compress=zstd,max-size=1K";
  emit(to, notes("before", 50));
  const auto run = follow({"shop"});
  EXPECT_EQ(lines_of(*run, 50), texts("before", 50));
  for (int round = 0; round < 4; ++round) {
    emit(to, notes("n", 300));
    ASSERT_EQ(sorted(lines_of(*run, 300)), sorted(texts("n", 300))) << round;
  }
  size_t segments = 0;
  for (const auto& file : fs::directory_iterator(folder_.path()))
    if (file.path().extension() == ".zst") ++segments;
  EXPECT_GT(segments, 200U);
  // Nothing of it comes again.
  emit(to, note_record("end"));
  EXPECT_EQ(run->out_line(), "end");
  const command_end end = ended(*run);
  EXPECT_EQ(end.out, "");
  EXPECT_EQ(end.status, 0);
}

// A segment that was read and closed meanwhile is compressed with what was written to it since.
TEST_F(RenderFollow, WhatASegmentGotBeforeItWasCompressedIsShown) {
  emit("--to journal:shop", note_record("one") + note_record("two", "2026-11-16T07:00:00+08:00"));
  const auto run = follow({"shop"});
  EXPECT_EQ(run->out_line(), "one");
  EXPECT_EQ(run->out_line(), "two");
  const std::string segment = "shop.20261115.0001.jsonl";
  run->signal(SIGSTOP);
  append(segment, note_record("three"));
  ASSERT_EQ(std::system(("zstd -q --rm " + folder_.path(segment)).c_str()), 0);
  emit("--to journal:shop", note_record("four", "2026-11-16T07:00:00+08:00"));
  run->signal(SIGCONT);
  EXPECT_EQ(run->out_line(), "three");
  EXPECT_EQ(run->out_line(), "four");
  EXPECT_EQ(ended(*run).out, "");
}

TEST_F(RenderFollow, SegmentsThatAreRemovedAreShownWhereTheyWereOpen) {
  const std::string to = "--to journal:shop,max-size=1K,keep-size=4K";
  emit(to, notes("before", 5));
  const auto run = follow({"shop"});
  EXPECT_EQ(lines_of(*run, 5), texts("before", 5));
  for (int round = 0; round < 30; ++round) {
    emit(to, notes("n", 20));
    ASSERT_EQ(lines_of(*run, 20), texts("n", 20)) << round;
  }
  const command_end end = ended(*run);
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_EQ(end.out, "");
}

// A name that comes again leads to another segment.
TEST_F(RenderFollow, ASegmentThatIsRemovedAndMadeAnewIsShown) {
  emit("--to journal:shop", note_record("one"));
  const auto run = follow({"shop"});
  EXPECT_EQ(run->out_line(), "one");
  for (const char* text : {"two", "three", "four"}) {
    fs::remove(folder_.path("shop.20261115.0001.jsonl"));
    emit("--to journal:shop", note_record(text));
    EXPECT_EQ(run->out_line(), text);
  }
}

TEST_F(RenderFollow, SeveralWritersLoseNothing) {
  const auto run = follow({"shop"});
  EXPECT_TRUE(run->wait_for_err("no journal"));
  std::vector<std::unique_ptr<running_command>> writers;
  std::vector<std::string> expected;
  for (const char* name : {"a", "b", "c"}) {
    writers.push_back(std::make_unique<running_command>(
        folder_.path(),
        emit_folder::words({"-q", "--to", "journal:shop,max-size=4K,compress=zstd"})));
    for (const std::string& text : texts(name, 300)) expected.push_back(text);
  }
  for (size_t number = 0; number < 300; ++number)
    for (size_t writer = 0; writer < writers.size(); ++writer)
      EXPECT_TRUE(writers[writer]->send(note_record(
          std::string(1, static_cast<char>('a' + writer)) + std::to_string(number),
          number % 2 == 0 ? "2026-11-15T17:02:56+08:00" : "2026-11-16T17:02:56+08:00")));
  for (const auto& writer : writers) EXPECT_EQ(writer->wait().status, 0);
  EXPECT_EQ(sorted(lines_of(*run, expected.size())), sorted(expected));
  EXPECT_EQ(ended(*run).out, "");
}

// As it is there in the end, the lines of killed writers included.
TEST_F(RenderFollow, AWriterThatIsKilledChangesNothing) {
  const std::string to = "journal:shop,max-size=2K";
  emit("--to " + to, note_record("begin"));
  const auto run = follow({"shop"});
  EXPECT_EQ(run->out_line(), "begin");
  for (int round = 0; round < 10; ++round) {
    running_command writer(folder_.path(), emit_folder::words({"-q", "--to", to}));
    EXPECT_TRUE(writer.send(notes("n" + std::to_string(round) + "-", 200)));
    EXPECT_EQ(run->out_line().substr(0, 1), "n");
    writer.signal(SIGKILL);
    static_cast<void>(writer.wait_for_end());
    emit("--to " + to, note_record("end" + std::to_string(round)));
    std::string line;
    do line = run->out_line();
    while (!line.empty() && line != "end" + std::to_string(round));
    ASSERT_NE(line, "") << round;
  }
  const command_end end = ended(*run);
  EXPECT_EQ(end.out, "");
  const command_result all =
      run_kplog(folder_.path(), "render --definitions events.ldf --locale en_US shop");
  EXPECT_EQ(end.err, all.err);
}

// A batch that is taken back was shown as far as it got; it is not shown again.
TEST_F(RenderFollow, AServiceThatIsKilledUnderItsBatchesIsShownOnce) {
  static constexpr size_t count = 20000;
  folder_.write("records", notes("n", count));
  const auto run = follow({"shop"});
  EXPECT_TRUE(run->wait_for_err("no journal"));
  const auto start = [&] {
    auto service = std::make_unique<running_command>(
        folder_.path(), emit_folder::words({"--to", "journal:shop,max-size=64K,compress=zstd",
                                            "--listen", "unix:sock"}));
    EXPECT_TRUE(service->wait_for_err("listening on"));
    return service;
  };
  auto service = start();
  running_command sender(folder_.path(),
                         {"send", "-q", "--socket", "sock", "--client", "a", "records"});
  std::vector<std::string> shown;
  for (size_t kills = 1; kills <= 10; ++kills) {
    while (shown.size() < kills * count / 12) shown.push_back(run->out_line());
    service->signal(SIGKILL);
    static_cast<void>(service->wait_for_end());
    service = start();
  }
  while (shown.size() < count) shown.push_back(run->out_line());
  EXPECT_EQ(sender.wait().status, 0);
  EXPECT_EQ(shown, texts("n", count));
  EXPECT_EQ(ended(*run).out, "");
}

TEST_F(RenderFollow, ReadsNoSegmentInWhichNothingFits) {
  const std::string records = notes("n", 10) + login_record("bob", 2, "2026-11-16T07:00:00+08:00");
  emit("--to journal:shop", records);
  const std::string first = "shop.20261115.0001.jsonl";
  const std::string lines = folder_.text(first);
  // What cannot be read shows which segments are.
  folder_.write(first, std::string(lines.size() - 1, 'x') + "\n");
  const auto run = follow({"shop", "--event", "USER_LOGIN"});
  EXPECT_EQ(run->out_line(), "bob logged in on port 2");
  append(first, login_record("alice", 1));
  EXPECT_EQ(run->out_line(), "alice logged in on port 1");
  const command_end end = ended(*run);
  EXPECT_EQ(end.err, "kplog: 12 records: 2 rendered, 0 marked, 0 bad, 10 left out\n");
}

TEST_F(RenderFollow, WhatIsDamagedIsToldAndTheRestIsShown) {
  emit("--to journal:shop", note_record("one") + note_record("two", "2026-11-16T07:00:00+08:00"));
  fs::remove(folder_.path("shop.20261115.0001.jsonl"));
  folder_.write("shop.20261115.0001.jsonl.zst", "no frame");
  const auto run = follow({"shop"});
  EXPECT_EQ(run->out_line(), "two");
  emit("--to journal:shop", note_record("three", "2026-11-16T07:00:00+08:00"));
  EXPECT_EQ(run->out_line(), "three");
  const command_end end = ended(*run);
  EXPECT_EQ(end.status, 3);
  EXPECT_THAT(end.err, HasSubstr("cannot read ./shop.20261115.0001.jsonl.zst: "));
}

// --- The last, and several places

TEST_F(RenderFollow, TheLastAreShownFirstAndThenWhatComes) {
  emit("--to journal:shop", notes("n", 100));
  const auto run = follow({"shop", "--last", "3"});
  EXPECT_EQ(lines_of(*run, 3), (std::vector<std::string>{"n97", "n98", "n99"}));
  emit("--to journal:shop", notes("m", 10));
  EXPECT_EQ(lines_of(*run, 10), texts("m", 10));
  EXPECT_EQ(ended(*run).err, "kplog: 110 records: 13 rendered, 0 marked, 0 bad, 97 left out\n");
}

// What cannot be read shows which segments are.
TEST_F(RenderFollow, ForTheLastTheLastSegmentsAreRead) {
  emit("--to journal:shop,max-size=2K", notes("n", 200));
  const std::string first = "shop.20261115.0001.jsonl";
  const std::string lines = folder_.text(first);
  folder_.write(first, std::string(lines.size() - 1, 'x') + "\n");
  const auto run = follow({"shop", "--last", "3"});
  EXPECT_EQ(lines_of(*run, 3), (std::vector<std::string>{"n197", "n198", "n199"}));
  append(first, note_record("late"));
  EXPECT_EQ(run->out_line(), "late");
  const command_end end = ended(*run);
  EXPECT_EQ(end.err, "kplog: 201 records: 4 rendered, 0 marked, 0 bad, 197 left out\n");
  EXPECT_EQ(end.status, 0);
}

static std::string at_second(const std::string& text, int second,
                             const std::string& recorded = "") {
  const std::string more = recorded.empty() ? "" : R"("recorded":")" + recorded + R"(",)";
  return R"({"event":"NOTE","time":"2026-11-15T17:02:)" + std::to_string(second) + R"(+08:00",)" +
         more + R"("attributes":{"TEXT":")" + text + "\"}}\n";
}

TEST_F(RenderFollow, PlacesAreMergedByTime) {
  folder_.write("a", at_second("a10", 10) + at_second("a20", 20) + at_second("a40", 40));
  folder_.write("b", "{\"event\":\"NOTE\",\"attributes\":{\"TEXT\":\"untimed\"}}\n" +
                         at_second("b20", 20) + at_second("b30", 30) + at_second("b25", 25));
  folder_.write("c", at_second("c20.5", 20, "2026-11-15T09:02:20.5Z") +
                         at_second("c20.25", 20, "2026-11-15T17:02:20.25+08:00"));
  const auto run = follow({"a", "b", "c"});
  EXPECT_EQ(lines_of(*run, 9), (std::vector<std::string>{"untimed", "a10", "a20", "b20", "c20.5",
                                                         "c20.25", "b30", "b25", "a40"}));
  // What comes is not held back for what may come.
  append("c", at_second("c50", 50));
  EXPECT_EQ(run->out_line(), "c50");
  append("a", at_second("a45", 45));
  EXPECT_EQ(run->out_line(), "a45");
  run->signal(SIGSTOP);
  append("a", at_second("a57", 57));
  append("b", at_second("b56", 56));
  append("c", at_second("c55", 55));
  run->signal(SIGCONT);
  EXPECT_EQ(lines_of(*run, 3), (std::vector<std::string>{"c55", "b56", "a57"}));
}

// Some lie beyond those that a clock tells.
TEST_F(RenderFollow, PlacesAreMergedByTimesOfAnyYear) {
  const auto at = [](const std::string& text, const std::string& second) {
    return R"({"event":"NOTE","time":")" + second + R"(Z","recorded":")" + second +
           R"(.999999999Z","attributes":{"TEXT":")" + text + "\"}}\n";
  };
  folder_.write("a", at("last", "9999-12-31T23:59:59"));
  folder_.write("b", at("late", "2262-04-11T23:47:16"));
  folder_.write("c", at("first", "0001-01-01T00:00:00") + at("now", "2026-11-15T09:02:20"));
  const auto run = follow({"a", "b", "c"});
  EXPECT_THAT(lines_of(*run, 2), testing::ElementsAre("first", "now"));
  EXPECT_THAT(lines_of(*run, 2), testing::UnorderedElementsAre("late", "last"));
}

TEST_F(RenderFollow, JournalsAreMergedByTime) {
  emit("--to journal:shop", at_second("a10", 10) + at_second("a30", 30));
  emit("--to journal:bank", at_second("b20", 20) + at_second("b40", 40));
  const auto run = follow({"shop", "bank", "--last", "3"});
  EXPECT_EQ(lines_of(*run, 3), (std::vector<std::string>{"b20", "a30", "b40"}));
  emit("--to journal:bank", at_second("b50", 50));
  EXPECT_EQ(run->out_line(), "b50");
  emit("--to journal:shop", at_second("a45", 45));
  EXPECT_EQ(run->out_line(), "a45");
}

// --- The end

TEST_F(RenderFollow, ASignalMayComeAtAnyTime) {
  std::string records = notes("n", 3000);
  folder_.write("records", records);
  for (int round = 0; round < 25; ++round) {
    const auto run = follow({"records", "-q"});
    const auto lines = static_cast<size_t>(round < 5 ? 0 : (round - 4) * 120);
    EXPECT_EQ(lines_of(*run, lines), texts("n", lines));
    const command_end end = ended(*run, round % 2 == 0 ? SIGTERM : SIGINT);
    EXPECT_THAT(end.status, lines == 0 ? AnyOf(0, 128 + SIGTERM, 128 + SIGINT) : AnyOf(0, 0, 0));
    EXPECT_THAT(end.out, AnyOf("", EndsWith("\n")));
    std::string rest;
    for (size_t i = lines; i < 3000 && rest.size() < end.out.size(); ++i)
      rest += "n" + std::to_string(i) + "\n";
    EXPECT_EQ(end.out, rest) << round;
  }
}

// What was written before the signal is shown.
TEST_F(RenderFollow, WhatWasThereWhenTheSignalCameIsShown) {
  folder_.write("records", note_record("begin"));
  const auto run = follow({"records"});
  EXPECT_EQ(run->out_line(), "begin");
  run->signal(SIGSTOP);
  append("records", notes("n", 1000));
  run->signal(SIGTERM);
  run->signal(SIGCONT);
  const command_end end = run->wait_for_end();
  EXPECT_EQ(end.status, 0);
  EXPECT_THAT(end.err, EndsWith("1001 records: 1001 rendered, 0 marked, 0 bad\n"));
}

TEST_F(RenderFollow, ASignalBeforeTheLastAreKnownShowsNone) {
  folder_.write("records", notes("n", 30000));
  for (int round = 0; round < 5; ++round) {
    const auto run = follow({"records", "--last", "2"});
    std::this_thread::sleep_for(std::chrono::milliseconds(round * 20));
    EXPECT_THAT(ended(*run).out, AnyOf("", "n29998\nn29999\n"));
  }
}

TEST_F(RenderFollow, ASignalEndsItThoughNobodyReads) {
  folder_.write("records", notes("n", 200000));
  const auto run = follow({"records", "--last", "200000"});
  EXPECT_EQ(run->out_line(), "n0");
  run->signal(SIGTERM);
  // Only then is its output read.
  siginfo_t info{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(run->id()), &info, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(info.si_status, 3);
  EXPECT_THAT(run->wait_for_end().err, HasSubstr("cannot write standard output"));
}

TEST_F(RenderFollow, AFullDiskIsTold) {
  folder_.write("records", note_record("one"));
  const auto shown =
      run_kplog(folder_.path(), "render --definitions events.ldf --follow records > /dev/full");
  EXPECT_EQ(shown.status, 3);
  EXPECT_THAT(shown.err, HasSubstr("cannot write standard output: No space left on device\n"));
}

TEST_F(RenderFollow, EndsWhenNobodyIsThereToRead) {
  folder_.write("records", note_record("one") + note_record("two"));
  const auto shown =
      run_kplog(folder_.path(), "render --definitions events.ldf --follow records | head -n 1");
  EXPECT_EQ(shown.out, "one\n");
}

TEST_F(RenderFollow, AnIgnoredSignalStaysSo) {
  folder_.write("records", note_record("one"));
  const auto run = follow({"records"}, "trap '' INT");
  EXPECT_EQ(run->out_line(), "one");
  run->signal(SIGINT);
  append("records", note_record("two"));
  EXPECT_EQ(run->out_line(), "two");
  EXPECT_EQ(ended(*run).status, 0);
}

// --- What it costs

TEST_F(RenderFollow, MemoryDoesNotGrow) {
  const std::string to = "--to journal:shop,max-size=256K,compress=zstd";
  const auto run = follow({"shop", "--event", "USER_LOGIN"});
  EXPECT_TRUE(run->wait_for_err("no journal"));
  for (int round = 0; round < 5; ++round) {
    emit(to, notes(std::string(1000, 'x'), 10000) + login_record("bob", round));
    EXPECT_EQ(run->out_line(), "bob logged in on port " + std::to_string(round));
  }
  const command_end end = ended(*run);
  EXPECT_THAT(end.err, HasSubstr("50005 records"));
  if (is_memory_its_own) {
    EXPECT_LT(end.peak_kilobytes, 100 * 1024);
  }
}

// It sleeps, and nothing but what happens wakes it.
TEST_F(RenderFollow, WaitsWithoutLookingUp) {
#ifdef __x86_64__
  folder_.write("records", note_record("one"));
  emit("--to journal:shop", note_record("two"));
  const auto run = follow({"records", "shop", "later"});
  EXPECT_EQ(lines_of(*run, 2), (std::vector<std::string>{"one", "two"}));
  const std::string path = "/proc/" + std::to_string(run->id()) + "/syscall";
  const auto is_in_endless_poll = [&] {
    std::ifstream file(path);
    std::string call, descriptors, count, patience;
    file >> call >> descriptors >> count >> patience;
    return call == "7" && patience == "0xffffffff";
  };
  if (std::ifstream(path).peek() == EOF) GTEST_SKIP() << "the system does not show calls";
  for (int tries = 0; tries < 600 && !is_in_endless_poll(); ++tries) usleep(100000);
  EXPECT_TRUE(is_in_endless_poll());
#endif
}

// Where the system has no watches to give, it asks.
TEST_F(RenderFollow, FollowsWithoutWatches) {
  const std::string none = "echo 0 > /proc/sys/user/max_inotify_instances";
  if (std::system(("unshare -Ur sh -c '" + none + "' 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "there are no namespaces of users";
  folder_.write("follow.sh", none + " && exec \"$@\"\n");
  folder_.write("records", note_record("one"));
  const auto run = follow({"records", "shop"}, "set -- unshare -Ur sh follow.sh \"$@\"");
  EXPECT_EQ(run->out_line(), "one");
  append("records", note_record("two"));
  EXPECT_EQ(run->out_line(), "two");
  emit("--to journal:shop,compress=zstd,max-size=300", notes("n", 20));
  EXPECT_EQ(lines_of(*run, 20), texts("n", 20));
  folder_.write("next", note_record("three"));
  fs::rename(folder_.path("next"), folder_.path("records"));
  EXPECT_EQ(run->out_line(), "three");
  EXPECT_EQ(ended(*run).status, 0);
}

// --- What is shown at the end of an input is shown at a signal

class RenderUntilSignal : public RenderFollow {
 protected:
  std::unique_ptr<running_command> render(const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = {"render", "--definitions", "events.ldf", "--locale", "en_US"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return std::make_unique<running_command>(folder_.path(), all);
  }
};

TEST_F(RenderUntilSignal, CountsOfStandardInputAreShown) {
  const auto run = render({"--by", "event"});
  EXPECT_TRUE(run->send("no record\n"));
  EXPECT_TRUE(run->wait_for_err("record-syntax"));
  EXPECT_TRUE(run->send(note_record("one") + login_record("bob", 1) + note_record("two")));
  const command_end end = ended(*run, SIGINT);
  EXPECT_EQ(end.status, 130);
  EXPECT_EQ(end.out, "EVENT       ENTRIES\nNOTE              2\nUSER_LOGIN        1\n");
  EXPECT_THAT(end.err, EndsWith("kplog: 4 records: 3 counted, 1 bad\n"));
}

TEST_F(RenderUntilSignal, TheLastOfAFifoAreShown) {
  ASSERT_EQ(mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  const auto run = render({"--last", "2", "fifo"});
  append("fifo", "no record\n");
  EXPECT_TRUE(run->wait_for_err("record-syntax"));
  append("fifo", note_record("one") + note_record("two") + note_record("three"));
  const command_end end = ended(*run);
  EXPECT_EQ(end.status, 143);
  EXPECT_EQ(end.out, "two\nthree\n");
}

TEST_F(RenderUntilSignal, AnInputThatHasEndedDoesNotCareForSignals) {
  const auto run = render({"--last", "2"});
  EXPECT_TRUE(run->send(note_record("one")));
  run->end_input();
  EXPECT_EQ(run->out_line(), "one");
  EXPECT_EQ(run->wait_for_end().status, 0);
}
