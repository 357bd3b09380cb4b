// Filters on several threads: one filter each, one configuration source for all.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "kp_LOG.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/temp_folder.h"

static ldf_file plain_and_debug_kind() {
  ldf_file file;
  for (const auto& [id, flags] : {std::pair(21U, 0x1U), {22U, 0x04000000U}}) {
    ldf_entry kind;
    kind.id = id;
    kind.flags = flags;
    file.entries.push_back(kind);
  }
  return file;
}

// Checks entries of both kinds with a filter of its own; the wrong answers.
static int wrong_answers(int rounds) {
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  int wrong = 0;
  for (int i = 0; i < rounds; ++i) {
    const auto level = static_cast<unsigned>(i % 10);
    if (filter.check_entry(kp_LOG_LogEntry(21, level)) != (level >= 4)) ++wrong;
    if (filter.check_entry(kp_LOG_LogEntry(22, level)) != (level >= 7)) ++wrong;
  }
  return wrong;
}

TEST(FilterThreads, AFilterOnEachThreadAnswersAsOneAlone) {
  const loaded_definitions definitions(plain_and_debug_kind());
  const temp_folder folder;
  const std::string path = folder.write(
      "s.cfg", "[s]\nDebugEnabled=1\nLogLevelLow=4\nDebugLogLevelLow=7\nPropertyMask=0x1\n[]\n\n");
  kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE);
  std::vector<int> wrong(4, -1);
  std::vector<std::thread> threads;
  for (int& answers : wrong) threads.emplace_back([&answers] { answers = wrong_answers(2000); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

// Settings come and go meanwhile: level 5 passes by each of them, 1 and 9 by none.
TEST(FilterThreads, AFilterForAllOfThemAnswersByTheSettingsBeforeOrBehindAChange) {
  const loaded_definitions definitions(plain_and_debug_kind());
  const temp_folder folder;
  const std::string first = folder.write("1.cfg", "[s]\nLogLevelLow=2\nLogLevelHigh=6\n[]\n\n"),
                    second = folder.write("2.cfg", "[s]\nLogLevelLow=4\nLogLevelHigh=8\n[]\n\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  filter.set_filter_log_level(5, 7);
  std::atomic<int> wrong{0};
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (unsigned kind = 0; kind < 4; ++kind)
    threads.emplace_back([&, kind] {
      const kp_LOG_LogEntry within(21 + kind % 2, 5), outside(21 + kind % 2, kind < 2 ? 1 : 9);
      while (!done)
        if (!filter.check_entry(within) || filter.check_entry(outside) || !filter.accepts(5, 1) ||
            filter.accepts(1, 0x04000000) || filter.accepts(9, 1))
          ++wrong;
    });
  for (int round = 0; round < 300; ++round) {
    kp_LOG_LogConfig::SetConfigurationSource(first.c_str(), KP_CONFIG_FILE);
    EXPECT_TRUE(filter.accepts(2, 1));
    EXPECT_FALSE(filter.accepts(8, 1));
    kp_LOG_LogConfig::SetConfigurationSource(second.c_str(), KP_CONFIG_FILE);
    EXPECT_FALSE(filter.accepts(2, 1));
    EXPECT_TRUE(filter.accepts(8, 1));
    kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
    EXPECT_FALSE(filter.accepts(8, 1));
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}
