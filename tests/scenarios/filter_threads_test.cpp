// Filters on several threads: one filter each, one configuration source for all.
#include <gtest/gtest.h>

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
