// kplog render --follow: what is there, and what comes later.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "tests/command/golden_file.h"
#include "tests/command/render_follow_fixture.h"

using testing::AnyOf;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
namespace fs = std::filesystem;

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

// The limit is raised as far as it may be; beyond that places are told.
TEST_F(RenderFollow, PlacesMayBeMoreThanFilesThatAreOpen) {
  std::vector<std::string> names;
  for (int i = 0; i < 60; ++i) names.push_back("place" + std::to_string(i));
  for (const std::string& name : names) folder_.write(name, note_record(name));
  const auto run = follow(names, "ulimit -S -n 40");
  EXPECT_EQ(sorted(lines_of(*run, names.size())), sorted(names));
  append("place59", note_record("later"));
  EXPECT_EQ(run->out_line(), "later");
  EXPECT_EQ(ended(*run).status, 0);
  const auto few = follow(names, "ulimit -n 40");
  EXPECT_TRUE(few->wait_for_err("Too many open files"));
  EXPECT_EQ(ended(*few).status, 3);
}

// Those that are followed go on into new segments; the others are told once, and come when there
// are descriptors for them: one that was removed keeps its watch, and is waited for.
TEST_F(RenderFollow, JournalsMayBeMoreThanFilesThatAreOpen) {
  constexpr size_t count = 30;
  std::vector<std::string> names;
  fs::create_directory(folder_.path("place0"));
  emit("--to journal:place0/shop", note_record("one"));
  for (size_t i = 0; i < count; ++i) {
    names.push_back("place" + std::to_string(i) + "/shop");
    if (i != 0) fs::copy(folder_.path("place0"), folder_.path("place" + std::to_string(i)));
  }
  const auto run = follow(names, "ulimit -n 64");
  size_t begun = 0;
  const auto read_up_to = [&](const std::string& text) {
    std::string line;
    for (line = run->out_line(); line == "one"; line = run->out_line()) ++begun;
    EXPECT_EQ(line, text);
  };
  for (const std::string later : {"a", "b", "c", "d"}) {
    emit("--to journal:place0/shop", note_record(later));
    read_up_to(later);
  }
  std::vector<std::string> faults;
  std::istringstream said(run->err_so_far());
  for (std::string fault; std::getline(said, fault);) faults.push_back(fault);
  EXPECT_FALSE(faults.empty());
  EXPECT_LT(begun, count);
  EXPECT_EQ(std::set<std::string>(faults.begin(), faults.end()).size(), faults.size());
  EXPECT_THAT(faults, Each(HasSubstr("Too many open files")));
  for (const std::string day : {"16", "17", "18"}) {
    emit("--to journal:place0/shop", note_record(day, "2026-11-" + day + "T17:02:56+08:00"));
    read_up_to(day);
  }
  for (int i = 1; i <= 20; ++i) fs::remove_all(folder_.path("place" + std::to_string(i)));
  for (; begun < count; ++begun) ASSERT_EQ(run->out_line(), "one") << begun;
  EXPECT_EQ(ended(*run).status, 3);
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
