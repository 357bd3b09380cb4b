// The one number that calls ask, held against the library's filter.
#include "recorder/filter_rule.h"

#include <gtest/gtest.h>

#include <random>

#include "kp_LOG_LogConfig.h"
#include "kp_LOG_Recorder.h"
#include "logging/own_settings.h"
#include "tests/support/temp_folder.h"

static constexpr uint32_t debug_flag = _kp_LOG_recorder_gate::debug_flag;

class RandomFilter {
 public:
  explicit RandomFilter(unsigned seed) : random_(seed) {}

  std::string settings() {
    std::string text = "[s]\n";
    for (const char* key : {"LogLevelLow", "LogLevelHigh", "DebugLogLevelLow", "DebugLogLevelHigh"})
      if (below(2) == 0) text += std::string(key) + " = " + std::to_string(below(11)) + "\n";
    if (below(2) == 0) text += "DebugEnabled = " + std::to_string(below(2)) + "\n";
    if (below(2) == 0) text += "PropertyMask = " + std::to_string(flags()) + "\n";
    return text + "\n";
  }
  uint32_t flags() {
    uint32_t flags = 0;
    for (unsigned bits = below(4); bits > 0; --bits) flags |= uint32_t{1} << below(32);
    return below(3) == 0 ? flags | debug_flag : flags;
  }
  unsigned below(unsigned end) { return static_cast<unsigned>(random_() % end); }

 private:
  std::mt19937 random_;
};

TEST(FilterRule, DecidesAsTheLibrarysFilterDoes) {
  const temp_folder folder;
  const unsigned seed = std::random_device()();
  RandomFilter random(seed);
  for (int round = 0; round < 300; ++round) {
    kp_log_own_settings settings;
    const kp_log_own_settings::scope scope(settings);
    const std::string text = random.settings();
    filter_rule rule(folder.write("s.conf", text), "s");
    rule.read();
    _kp_LOG_recorder_gate gate;
    gate.accepted.store(rule.rule());
    _kp_LOG_entry_filter filter;
    filter.set_filter_log_level(0, 9);
    filter.set_section("s");
    unsigned mask = 0;
    const bool has_mask = kp_LOG_LogConfig::GetConfigurationIntegerValue("s", "PropertyMask", mask);
    for (unsigned level = 0; level < 10; ++level)
      for (int flags_round = 0; flags_round < 20; ++flags_round) {
        const uint32_t flags = random.flags();
        // Without a mask an event without flags passes by its level.
        const bool expected = filter.accepts(level, flags) ||
                              (flags == 0 && !has_mask && filter.accepts(level, ~debug_flag));
        ASSERT_EQ(gate.accepts(level, flags), expected)
            << "seed " << seed << ", level " << level << ", flags " << flags << " by\n"
            << text;
      }
  }
}

TEST(FilterRule, LetsEverythingPassWithoutSettings) {
  filter_rule rule("", "");
  rule.read();
  _kp_LOG_recorder_gate gate;
  gate.accepted.store(rule.rule());
  for (unsigned level = 0; level < 10; ++level)
    for (const uint32_t flags : {0u, 1u, debug_flag, ~0u}) EXPECT_TRUE(gate.accepts(level, flags));
}
