// kplog render --follow of journals: segments that come, grow, are compressed, and go.
#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "tests/command/render_follow_fixture.h"

using testing::HasSubstr;
namespace fs = std::filesystem;

class FollowJournal : public RenderFollow {};

TEST_F(FollowJournal, AJournalMayComeLater) {
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

TEST_F(FollowJournal, AJournalMayGoAndComeAgain) {
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
TEST_F(FollowJournal, EachRecordIsShownOnceThoughItsSegmentIsCompressed) {
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
TEST_F(FollowJournal, WhatASegmentGotBeforeItWasCompressedIsShown) {
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

TEST_F(FollowJournal, SegmentsThatAreRemovedAreShownWhereTheyWereOpen) {
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
TEST_F(FollowJournal, ASegmentThatIsRemovedAndMadeAnewIsShown) {
  emit("--to journal:shop", note_record("one"));
  const auto run = follow({"shop"});
  EXPECT_EQ(run->out_line(), "one");
  for (const char* text : {"two", "three", "four"}) {
    fs::remove(folder_.path("shop.20261115.0001.jsonl"));
    emit("--to journal:shop", note_record(text));
    EXPECT_EQ(run->out_line(), text);
  }
}

TEST_F(FollowJournal, SeveralWritersLoseNothing) {
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
TEST_F(FollowJournal, AWriterThatIsKilledChangesNothing) {
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
TEST_F(FollowJournal, AServiceThatIsKilledUnderItsBatchesIsShownOnce) {
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

TEST_F(FollowJournal, ReadsNoSegmentInWhichNothingFits) {
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

TEST_F(FollowJournal, WhatIsDamagedIsToldAndTheRestIsShown) {
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
