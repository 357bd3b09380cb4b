// Rings whose owners died with events in them.
#ifndef TESTS_RECORDER_RECOVERY_FIXTURE_H
#define TESTS_RECORDER_RECOVERY_FIXTURE_H

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>

#include "recording/ring/recovery.h"
#include "tests/command/command_run.h"
#include "tests/recorder/recorder_fixture.h"

using answer = kp_LOG_Recorded;
namespace fs = std::filesystem;

class RecoveryPlace : public RecorderPlace {
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
    if (is_text_synced_) {
      split.json.clear();
      split.count.clear();
      split.synced = true;
    }
    return split;
  }

  // A process that records so many events, loses one behind them, and is killed: they are in the
  // ring, those that came first in the stored form as well, and none in the text logs.
  void die_with(uint32_t events, const std::string& folder) const {
    die_after(
        folder,
        [events](kp_LOG_Recorder& log) {
          for (uint32_t number = 1; number <= events; ++number)
            if (log.Record(shop::STEP{.NUMBER = number, .THREAD = 7u}) != answer::recorded)
              _exit(1);
        },
        lose_one);
  }
  // The same with large events, three blocks of the ring each, and none lost.
  void die_with_large(uint32_t events, const std::string& folder) const {
    const std::string text(2000, 'x');
    die_after(folder, [&](kp_LOG_Recorder& log) {
      for (uint32_t number = 1; number <= events; ++number)
        log.Record(shop::LARGE{.NUMBER = number, .FIRST = text, .SECOND = text, .THIRD = text});
    });
  }
  // `last` is called when the text logs have failed, so that nothing comes behind what was taken.
  template <class Recording>
  void die_after(const std::string& folder, Recording recording,
                 void (*last)(kp_LOG_Recorder&) = nullptr) const {
    fs::create_directory(folder + "/logs");
    const pid_t child = fork();
    if (child == 0) {
      static std::atomic<bool> has_failed = false;
      kp_LOG_RecorderOptions options = options_in(folder);
      options.on_fault = [](kp_LOG_RecorderFault, const std::string&) { has_failed = true; };
      kp_LOG_Recorder log(options);
      fs::remove_all(folder + "/logs");
      recording(log);
      for (unsigned turns = 10000; !has_failed; --turns) {
        if (turns == 0) _exit(1);
        log.Flush(std::chrono::milliseconds(5));
      }
      if (last != nullptr) last(log);
      kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    fs::create_directory(folder + "/logs");
  }
  static void lose_one(kp_LOG_Recorder& log) { log.Record(10, shop::PLAIN{}); }

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
  bool is_text_synced_ = false;  // which is the only output then
  std::vector<std::string> told_;
};

#endif
