// Asking a filter before an entry is built, and what a filter remembers of the settings.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <optional>
#include <random>
#include <string>

#include "kp_LOG.h"
#include "logging/logcfg_file.h"
#include "logging/logentry_i.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/temp_folder.h"

static constexpr unsigned debug_bit = 0x04000000;
static constexpr unsigned masks[] = {0x3, 0x4, debug_bit | 0x1, 0, debug_bit};
static constexpr unsigned first_kind = 11;  // its property mask is masks[0], and so on

static ldf_file kinds_of_every_mask() {
  ldf_file file;
  for (const unsigned mask : masks)
    file.entries.push_back(
        {.id = first_kind + static_cast<unsigned>(file.entries.size()), .flags = mask});
  return file;
}

class FilterAccepts : public testing::Test {
 protected:
  ~FilterAccepts() override { kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE); }

  std::string write(const std::string& lines) const {
    return folder_.write("f.cfg", lines + "[]\n\n");
  }
  void configure(const std::string& lines) const {
    kp_LOG_LogConfig::SetConfigurationSource(write(lines).c_str(), KP_CONFIG_FILE);
  }

  const loaded_definitions definitions_{kinds_of_every_mask()};
  const temp_folder folder_;
};

// --- As it is described, value by value ---

struct described_filter {
  using settings = std::map<std::string, unsigned>;  // by section and key

  void replace(unsigned& value, const char* key) const {
    if (!source) return;
    for (const std::string section : {"s", "global"}) {
      const auto found = source->find(section + key);
      if (found == source->end()) continue;
      value = found->second;
      return;
    }
  }
  bool accepts(unsigned level, unsigned property_mask) const {
    const bool debug_entry = (property_mask & debug_bit) != 0;
    unsigned debug_enabled = 0, from = low, to = high, shared = mask;
    replace(debug_enabled, "DebugEnabled");
    replace(from, "LogLevelLow");
    replace(to, "LogLevelHigh");
    if (debug_entry) replace(from, "DebugLogLevelLow");
    if (debug_entry) replace(to, "DebugLogLevelHigh");
    replace(shared, "PropertyMask");
    if (level < from || level > to) return false;
    return (debug_entry && debug_enabled != 0) || (property_mask & shared) != 0;
  }

  unsigned low = 0, high = 9, mask = 0xFFFFFFFF;
  std::optional<settings> source;
};

class drawn_filters {
 public:
  explicit drawn_filters(unsigned seed) : random_(seed) {}

  unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }
  unsigned mask() { return below(3) == 0 ? below(2) * 0xFFFFFFFF : 1U << below(32) | below(8); }
  void draw_settings(described_filter& filter, std::string& lines) {
    filter.source.emplace();
    for (const std::string section : {"global", "s", "t"}) {
      lines += "[" + section + "]\n";
      for (const std::string key : {"DebugEnabled", "LogLevelLow", "LogLevelHigh",
                                    "DebugLogLevelLow", "DebugLogLevelHigh", "PropertyMask"}) {
        if (below(3) != 0) continue;
        const unsigned value = key == "PropertyMask"   ? mask()
                               : key == "DebugEnabled" ? below(3)
                               : below(20) == 0        ? 0xFFFFFFFF
                                                       : below(12);
        (*filter.source)[section + key] = value;
        lines += key + "=" + std::to_string(value) + "\n";
      }
    }
  }

 private:
  std::mt19937 random_;
};

TEST_F(FilterAccepts, WhatIsDescribedAndWhatCheckEntryPasses) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  drawn_filters drawn(seed);
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  described_filter described;
  for (int round = 0; round < 300; ++round) {
    std::string lines;
    if (drawn.below(4) == 0) {
      described.source.reset();
      kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
    } else if (drawn.below(2) == 0) {
      drawn.draw_settings(described, lines);
      configure(lines);
    } else {
      filter.set_filter_log_level(described.low = drawn.below(10),
                                  described.high = drawn.below(10));
      filter.set_property_mask(described.mask = drawn.mask());
    }
    for (unsigned level = 0; level < 13; ++level)
      for (const unsigned mask : masks)
        ASSERT_EQ(filter.accepts(level, mask), described.accepts(level, mask))
            << lines << level << " " << mask;
    for (unsigned kind = 0; kind < std::size(masks); ++kind) {
      const unsigned level = drawn.below(10);
      ASSERT_EQ(filter.check_entry(kp_LOG_LogEntry(first_kind + kind, level)),
                described.accepts(level, masks[kind]))
          << lines << level << " " << masks[kind];
    }
  }
}

// --- When settings are seen ---

TEST_F(FilterAccepts, EachSourceAtOnce) {
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  for (int round = 0; round < 3; ++round) {
    configure("[s]\nLogLevelHigh=3\n");
    EXPECT_FALSE(filter.accepts(4, 1));
    EXPECT_FALSE(filter.accepts(4, 1));
    configure("[s]\nLogLevelHigh=4\n");
    EXPECT_TRUE(filter.accepts(4, 1));
    EXPECT_FALSE(filter.accepts(5, 1));
    kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
    EXPECT_TRUE(filter.accepts(5, 1));
  }
}

TEST_F(FilterAccepts, AFileThatChangedWhenItMayBeReadAgain) {
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  configure("[s]\nLogLevelHigh=3\n");
  EXPECT_FALSE(filter.accepts(4, 1));
  const std::string path = write("[s]\nLogLevelHigh=4\n");
  constexpr timespec long_ago[] = {{1000, 0}, {1000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), long_ago, 0), 0);
  EXPECT_FALSE(filter.accepts(4, 1));
  _kp_LOG_file_configuration::bCfgReaded = 0;
  EXPECT_TRUE(filter.accepts(4, 1));
  EXPECT_NE(_kp_LOG_file_configuration::bCfgReaded, 0U);
  EXPECT_TRUE(filter.accepts(4, 1));
}

TEST_F(FilterAccepts, AFileThatComesLater) {
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  const std::string path = folder_.file("f.cfg");
  kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE_OPTIONAL);
  EXPECT_TRUE(filter.accepts(4, 1));
  EXPECT_TRUE(filter.accepts(4, 1));
  write("[s]\nLogLevelHigh=3\n");
  EXPECT_FALSE(filter.accepts(4, 1));
}

TEST_F(FilterAccepts, AnotherSectionAndOtherValuesOfItsOwn) {
  _kp_LOG_entry_filter filter;
  configure("[s]\nLogLevelHigh=3\n[t]\nLogLevelHigh=5\n");
  filter.set_section("s");
  EXPECT_FALSE(filter.accepts(4, 1));
  filter.set_section("t");
  EXPECT_TRUE(filter.accepts(4, 1));
  filter.set_property_mask(2);
  EXPECT_FALSE(filter.accepts(4, 1));
  filter.set_property_mask(1);
  filter.set_filter_log_level(5, 5);
  EXPECT_FALSE(filter.accepts(4, 1));
  const _kp_LOG_entry_filter copy = filter;
  filter.set_filter_log_level(4, 5);
  EXPECT_FALSE(copy.accepts(4, 1));
  EXPECT_TRUE(filter.accepts(4, 1));
  filter = copy;
  EXPECT_FALSE(filter.accepts(4, 1));
}

// --- Beside checks ---

TEST_F(FilterAccepts, WithoutAskingTheCallback) {
  _kp_LOG_entry_filter filter;
  filter.set_callback(
      [](unsigned, unsigned, unsigned, const kp_LOG_LogEntry&, void*) { return false; }, nullptr);
  EXPECT_TRUE(filter.accepts(4, 1));
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(first_kind, 4)));
}

TEST_F(FilterAccepts, WithoutAWordToTheThreeTests) {
  configure("[s]\nDebugEnabled=1\nDebugLogLevelHigh=3\nPropertyMask=0\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  const kp_LOG_LogEntry plain(first_kind, 4), debug(first_kind + 4, 4);
  for (int round = 0; round < 2; ++round) {
    EXPECT_FALSE(filter.check_entry(debug));
    filter.accepts(4, 1);
    EXPECT_FALSE(filter._check_entry_by_log_level(plain._get_imp()));
    EXPECT_TRUE(filter._check_entry_by_property_mask(plain._get_imp()));
    EXPECT_FALSE(filter.check_entry(plain));
    filter.accepts(4, debug_bit);
    EXPECT_TRUE(filter._check_entry_by_log_level(plain._get_imp()));
    EXPECT_FALSE(filter._check_entry_by_property_mask(plain._get_imp()));
  }
}
