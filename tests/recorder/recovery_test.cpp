// What becomes of a ring whose owner died with events in it.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <map>
#include <thread>

#include "kp_LOG_Recorder.h"
#include "recording/ring/recovery.h"
#include "tests/command/command_run.h"
#include "tests/recorder/recorder_fixture.h"
#include "tests/support/ending.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using answer = kp_LOG_Recorded;
namespace fs = std::filesystem;

class Recovery : public RecorderPlace {
 protected:
  // Of a recorder whose text logs cannot be written, while its stored form and counter can.
  kp_LOG_RecorderOptions options_in(const std::string& folder) const {
    kp_LOG_RecorderOptions split = options();
    split.on_fault = {};
    split.text = folder + "/logs/shop";
    split.json = folder + "/shop.jsonl";
    split.count = folder + "/shop";
    split.ring_folder = folder;
    split.ring_size = 512 << 10;
    split.definitions = definitions_;
    return split;
  }

  // A process that records so many events, and is killed when they are in the stored form: they are
  // in the ring, and not in the text logs.
  void die_with(uint32_t events, const std::string& folder) const {
    fs::create_directory(folder + "/logs");
    const pid_t child = fork();
    if (child == 0) {
      kp_LOG_Recorder log(options_in(folder));
      fs::remove_all(folder + "/logs");
      for (uint32_t number = 1; number <= events; ++number)
        if (log.Record(shop::STEP{.NUMBER = number, .THREAD = 7u}) != answer::recorded) _exit(1);
      log.Record(10, shop::PLAIN{});
      log.Flush(std::chrono::milliseconds(300));
      kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    fs::create_directory(folder + "/logs");
  }

  recovered_events recover(const std::string& folder) {
    recovery_rules rules;
    rules.known_outputs = {folder + "/logs/shop", folder + "/shop.jsonl", folder + "/shop"};
    rules.report = [this](const std::string& text) { told_.push_back(text); };
    rules.fault = rules.report;
    return recover_rings(folder + "/shop", rules);
  }

  static std::vector<std::string> text_lines(const std::string& folder) {
    std::vector<std::string> lines;
    std::vector<fs::path> logs;
    for (const auto& file : fs::directory_iterator(folder + "/logs"))
      if (file.path().filename().string().starts_with("shop.2")) logs.push_back(file.path());
    std::sort(logs.begin(), logs.end());
    for (const fs::path& log : logs)
      for (std::string& line : lines_of(read_whole_file(log.string()))) lines.push_back(line);
    return lines;
  }

  // Text logs and stored form have the numbers from 1, each once and in order, and kplog.lost.
  static void expect_all(uint32_t events, const std::string& folder) {
    uint32_t number = 0;
    uint32_t losses = 0;
    for (const std::string& line : text_lines(folder)) {
      if (line.find(" kplog.lost ") != std::string::npos)
        ++losses;
      else
        EXPECT_THAT(line, testing::EndsWith(" STEP 7 " + std::to_string(++number)));
    }
    EXPECT_EQ(number, events);
    EXPECT_EQ(losses, 1u);
    number = 0;
    uint64_t sequence = 0;
    for (const std::string& line : lines_of(read_whole_file(folder + "/shop.jsonl"))) {
      const auto record = nlohmann::json::parse(line);
      EXPECT_EQ(record["sequence"], ++sequence);
      if (record["event"] != 0) {
        EXPECT_EQ(record["attributes"]["NUMBER"], ++number);
      }
    }
    EXPECT_EQ(number, events);
    EXPECT_EQ(sequence, events + 1);
  }

  static std::string counted(const std::string& folder) {
    const command_result counts = run_kplog(folder, "count --format csv shop.cnt");
    return counts.out;
  }

  std::string ring_in(const std::string& folder) const {
    for (const auto& file : fs::directory_iterator(folder))
      if (file.path().string().find(".ring.") != std::string::npos) return file.path().string();
    return "";
  }

  std::string definitions_ = KPLOG_SHOP_DEFINITIONS;
  std::vector<std::string> told_;
};

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

#endif

// ---- what is wrong with rings ----

TEST_F(Recovery, PassesOverWhatIsDamaged) {
  die_with(200, folder_.path());
  const std::string ring = ring_in(folder_.path());
  std::string bytes = read_whole_file(ring);
  std::string damaged = bytes;
  for (size_t offset = ring_head_size; offset + ring_block_size <= damaged.size();
       offset += ring_block_size) {
    auto* const block = reinterpret_cast<block_head*>(damaged.data() + offset);
    if (block->used > 2000 && block->lane != 0) damaged[offset + 1000] ^= 1;
  }
  ASSERT_NE(damaged, bytes);
  folder_.write(fs::path(ring).filename().string(), damaged);
  const recovered_events found = recover(folder_.path());
  EXPECT_GT(found.damaged, 0u);
  EXPECT_GT(found.recovered, 10u);
  EXPECT_LT(found.recovered, 200u);
  EXPECT_EQ(text_lines(folder_.path()).size(), found.recovered + 1);
  EXPECT_THAT(told_, testing::Contains(HasSubstr(" passed over")));
}

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
  EXPECT_EQ(recover(folder_.path()).rings, 0u);
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
