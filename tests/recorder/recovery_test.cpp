// What becomes of a ring whose owner died with events in it.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <set>
#include <thread>

#include "kp_LOG_Recorder.h"
#include "recording/ring/recovery.h"
#include "tests/command/command_run.h"
#include "tests/command/running_command.h"
#include "tests/recorder/recovery_fixture.h"
#include "tests/support/ending.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Recovery : public RecoveryPlace {};

TEST_F(Recovery, BringsEventsIntoTheOutputsThatLackThem) {
  die_with(50, folder_.path());
  const std::string ring = ring_in(folder_.path());
  EXPECT_THAT(text_lines(folder_.path()), IsEmpty());
  const recovered_events found = recover(folder_.path());
  EXPECT_EQ(found.rings, 1u);
  EXPECT_EQ(found.recovered, 50u);
  EXPECT_EQ(found.failures, 0u);
  EXPECT_THAT(told_, ElementsAre("the ring " + ring + ": 50 events recovered"));
  expect_all(50, folder_.path());
  EXPECT_EQ(ring_in(folder_.path()), "");
  EXPECT_THAT(counted(folder_.path()), HasSubstr(",1003,50"));
}

TEST_F(Recovery, IsDoneByTheNextRecorder) {
  die_with(20, folder_.path());
  {
    kp_LOG_Recorder log(options_in(folder_.path()));
    EXPECT_EQ(text_lines(folder_.path()).size(), 21u);
  }
  expect_all(20, folder_.path());
}

TEST_F(Recovery, IsDoneOnceByRecordersThatBeginTogether) {
  die_with(20, folder_.path());
  std::vector<std::thread> all;
  for (int number = 0; number < 4; ++number)
    all.emplace_back([this] { kp_LOG_Recorder log(options_in(folder_.path())); });
  for (std::thread& thread : all) thread.join();
  expect_all(20, folder_.path());
}

TEST_F(Recovery, IsDoneByEmit) {
  die_with(20, folder_.path());
  const command_result emitted =
      run_kplog(folder_.path(), "emit --definitions " + definitions_ +
                                    " --to text:shop --to text:logs/shop --to json:shop.jsonl "
                                    "--count shop --quiet </dev/null");
  EXPECT_EQ(emitted.status, 0) << emitted.err;
  expect_all(20, folder_.path());
}

TEST_F(Recovery, IsDoneByTheNextRecorderOfTheProcess) {
  fs::create_directory(folder_.file("logs"));
  {
    kp_LOG_Recorder log(options_in(folder_.path()));
    fs::remove_all(folder_.file("logs"));
    for (uint32_t number = 1; number <= 20; ++number)
      log.Record(shop::STEP{.NUMBER = number, .THREAD = 7u});
    log.Record(10, shop::PLAIN{});
  }
  EXPECT_NE(ring_in(folder_.path()), "");
  EXPECT_EQ(read_whole_file("/proc/self/maps").find(".ring."), std::string::npos);
  fs::create_directory(folder_.file("logs"));
  const kp_LOG_Recorder next(options_in(folder_.path()));
  expect_all(20, folder_.path());
}

TEST_F(Recovery, IsDoneByAServiceWhenItIsToldTo) {
  fs::create_directory(folder_.file("logs"));
  running_command service(
      folder_.path(),
      {"emit", "--definitions", definitions_, "--to", "text:shop", "--to", "text:logs/shop", "--to",
       "json:shop.jsonl", "--count", "shop", "--listen", "unix:sock"});
  ASSERT_TRUE(service.wait_for_err("listening on unix:sock"));
  die_with(20, folder_.path());
  service.signal(SIGHUP);
  EXPECT_TRUE(service.wait_for_err("20 events recovered"));
  service.signal(SIGTERM);
  EXPECT_EQ(service.wait_for_end().status, 0);
  expect_all(20, folder_.path());
}

#ifdef KP_FAULTS

TEST_F(Recovery, ThatDiesAtAnyCallLosesNothingAndWritesNothingTwice) {
  const std::string place = folder_.file("place");
  const std::string saved = folder_.file("saved");
  fs::create_directory(place);
  die_with(30, place);
  fs::copy(place, saved, fs::copy_options::recursive);
  unsigned calls = 0;
  for (bool is_ended = true; is_ended; ++calls) {
    fs::remove_all(place);
    fs::copy(saved, place, fs::copy_options::recursive);
    is_ended = ends_at_call(calls + 1, [&] { recover(place); });
    recover(place);
    expect_all(30, place);
    EXPECT_THAT(counted(place), HasSubstr(",1003,30")) << told_.back();
    ASSERT_FALSE(HasFailure()) << "at call " << calls + 1;
  }
  EXPECT_GT(calls, 40u);
}

TEST_F(Recovery, TellsWhenATextLogWasMovedOrRemovedMeanwhile) {
  static constexpr uint32_t events = 30;
  const std::string place = folder_.file("place");
  const std::string saved = folder_.file("saved");
  fs::create_directory(place);
  is_text_synced_ = true;
  die_with(events, place);
  fs::copy(place, saved, fs::copy_options::recursive);
  unsigned repeats = 0;
  unsigned call = 0;
  for (bool is_ended = true; is_ended;) {
    fs::remove_all(place);
    fs::copy(saved, place, fs::copy_options::recursive);
    is_ended = ends_at_call(++call, [&] { recover(place); });
    std::vector<std::string> lines = text_lines(place);
    for (const auto& file : fs::directory_iterator(place + "/logs"))
      if (file.path().filename().string().starts_with("shop.2")) {
        if (call % 2 == 0)
          fs::rename(file.path(), folder_.file("moved"));
        else
          fs::remove(file.path());
      }
    told_.clear();
    recover(place);
    for (const std::string& line : text_lines(place)) lines.push_back(line);
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), events + 1) << "lost";
    if (lines.size() > events + 1) {
      ++repeats;
      EXPECT_THAT(told_, testing::Contains(HasSubstr("twice")));
    }
    ASSERT_FALSE(HasFailure()) << "at call " << call;
  }
  EXPECT_GT(repeats, 0u);
}

#endif

TEST_F(Recovery, KeepsEventsWhoseDefinitionsAreOthers) {
  definitions_ = folder_.file("own.ldf");
  fs::copy_file(KPLOG_SHOP_DEFINITIONS, definitions_);
  die_with(10, folder_.path());
  std::string source = read_whole_file(KPLOG_SHOP_SOURCE);
  const std::string before = "{NUMBER: UInt4, THREAD: UInt4}";
  source.replace(source.find(before), before.size(), "{NUMBER: UInt4, THREAD: SInt4}");
  folder_.write("own.yaml", source);
  ASSERT_EQ(run_kplog(folder_.path(), "compile --quiet own.yaml -o own.ldf").status, 0);

  fs::remove(folder_.file("shop.jsonl"));
  recovered_events found = recover(folder_.path());
  EXPECT_EQ(found.recovered, 0u);
  EXPECT_GT(found.staying, 0u);
  EXPECT_THAT(told_, testing::Contains(HasSubstr("whose definitions are gone or are others")));
  EXPECT_NE(ring_in(folder_.path()), "");

  fs::remove(definitions_);
  found = recover(folder_.path());
  EXPECT_EQ(found.failures, 1u);
  EXPECT_THAT(told_.back(), HasSubstr("own.ldf: No such file or directory"));
  EXPECT_NE(ring_in(folder_.path()), "");

  fs::copy_file(KPLOG_SHOP_DEFINITIONS, definitions_);
  found = recover(folder_.path());
  EXPECT_EQ(found.recovered, 10u);
  EXPECT_EQ(ring_in(folder_.path()), "");
}

TEST_F(Recovery, LeavesRingsOfLivingOwners) {
  int stop[2];
  int ready[2];
  ASSERT_EQ(pipe(stop), 0);
  ASSERT_EQ(pipe(ready), 0);
  fs::create_directory(folder_.file("logs"));
  const pid_t child = fork();
  char byte = 0;
  if (child == 0) {
    close(stop[1]);
    kp_LOG_Recorder log(options_in(folder_.path()));
    log.Record(shop::PLAIN{});
    static_cast<void>(write(ready[1], "x", 1));
    static_cast<void>(read(stop[0], &byte, 1));
    _exit(0);
  }
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  kill(child, SIGSTOP);
  const recovered_events found = recover(folder_.path());
  EXPECT_EQ(found.rings, 0u);
  EXPECT_EQ(found.in_use, 1u);
  EXPECT_NE(ring_in(folder_.path()), "");
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(recover(folder_.path()).rings, 1u);
  for (const int end : {stop[0], stop[1], ready[0], ready[1]}) close(end);
}

TEST_F(Recovery, DoesNotBelieveARingThatNamesOutputsElsewhere) {
  const std::string other = folder_.file("other");
  fs::create_directory(other);
  die_with(5, other);
  const std::string moved = folder_.file(fs::path(ring_in(other)).filename().string());
  fs::rename(ring_in(other), moved);
  recovery_rules rules;
  rules.fault = [this](const std::string& text) { told_.push_back(text); };
  EXPECT_EQ(recover_rings(folder_.file("shop"), rules).failures, 1u);
  EXPECT_THAT(told_, ElementsAre(HasSubstr("it names the output ")));
  EXPECT_THAT(text_lines(other), IsEmpty());
}

TEST_F(Recovery, KeepsEventsOfARecorderWhoseDefinitionsWereReplaced) {
  definitions_ = folder_.file("own.ldf");
  fs::copy_file(KPLOG_SHOP_DEFINITIONS, definitions_);
  std::string source = read_whole_file(KPLOG_SHOP_SOURCE);
  const std::string before = "{NUMBER: UInt4, THREAD: UInt4}";
  source.replace(source.find(before), before.size(), "{NUMBER: UInt4, THREAD: SInt4}");
  folder_.write("other.yaml", source);
  ASSERT_EQ(run_kplog(folder_.path(), "compile --quiet other.yaml -o other.ldf").status, 0);
  static constexpr uint32_t events = 10;
  const auto record = [this](kp_LOG_Recorder& log) {
    fs::rename(folder_.file("other.ldf"), definitions_);
    for (uint32_t number = 1; number <= events; ++number)
      if (log.Record(shop::STEP{.NUMBER = number, .THREAD = 7u}) != answer::recorded) _exit(1);
  };
  die_after(folder_.path(), record, lose_one);
  EXPECT_THAT(read_whole_file(folder_.file("shop.jsonl")), HasSubstr(R"("message":"7 1")"));

  recovered_events found = recover(folder_.path());
  EXPECT_EQ(found.recovered, 0u);
  EXPECT_THAT(told_, testing::Contains(HasSubstr("whose definitions are gone or are others")));
  EXPECT_NE(ring_in(folder_.path()), "");

  fs::remove(definitions_);
  fs::copy_file(KPLOG_SHOP_DEFINITIONS, definitions_);
  found = recover(folder_.path());
  EXPECT_EQ(found.recovered, events);
  expect_all(events, folder_.path());
}
