#include <gtest/gtest.h>

#include <string>

#include "logging/logcfg_file.h"
#include "tests/support/failing.h"

TEST(SettingsTable, OverwritesAndFindsByTheJoinedText) {
  _kp_LOG_log_setting_tbl table(3);
  EXPECT_EQ(table.find_entry("s", "A"), nullptr);
  table.create_entry("s", "A", 1);
  table.create_entry("s", "A", 2);
  table.create_entry(nullptr, "sB", 3);
  EXPECT_EQ(*table.find_entry("s", "A"), 2U);
  EXPECT_EQ(*table.find_entry("sB", nullptr), 3U);
}

TEST(SettingsTable, KeepsItsBucketsWhenCleared) {
  _kp_LOG_log_setting_tbl table(3);
  EXPECT_EQ(table.bucket_count(), 3U);
  for (unsigned i = 0; i < 20; ++i) table.create_entry("s", std::to_string(i).c_str(), i);
  table.clear();
  EXPECT_EQ(table.bucket_count(), 3U);
  EXPECT_EQ(table.find_entry("s", "3"), nullptr);
  table.set_size(23);
  EXPECT_EQ(table.bucket_count(), KP_recommended_hash_size(23));
}

// A table of more keys than are looked through one by one, "s0" to "s99" among them.
static void fill_beyond_a_handful(_kp_LOG_log_setting_tbl& table) {
  for (unsigned i = 0; i < 100; ++i) table.create_entry("s", std::to_string(i).c_str(), i);
}

TEST(SettingsTable, OfManyKeysFindsThoseOfEveryLength) {
  for (const unsigned size : {3U, 23U}) {
    _kp_LOG_log_setting_tbl table(size);
    fill_beyond_a_handful(table);
    const std::string section(100, 'a');
    for (const size_t length : {0U, 1U, 154U, 155U, 156U, 157U, 400U})
      table.create_entry(section.c_str(), std::string(length, 'b').c_str(),
                         static_cast<unsigned>(1000 + length));
    for (const size_t length : {0U, 1U, 154U, 155U, 156U, 157U, 400U}) {
      const std::string key(length, 'b');
      ASSERT_NE(table.find_entry(section.c_str(), key.c_str()), nullptr) << length;
      EXPECT_EQ(*table.find_entry(section.c_str(), key.c_str()), 1000 + length);
      EXPECT_EQ(*table.find_entry(nullptr, (section + key).c_str()), 1000 + length);
      EXPECT_EQ(table.find_entry("x", (section + key).c_str()), nullptr);
    }
    for (unsigned i = 0; i < 100; ++i)
      EXPECT_EQ(*table.find_entry("s", std::to_string(i).c_str()), i);
    EXPECT_EQ(table.find_entry("s", "100"), nullptr);
  }
}

TEST(SettingsTable, OfSixteenKeysOrOfSeventeenFindsAndOverwritesAlike) {
  _kp_LOG_log_setting_tbl table(3);
  for (unsigned n = 0; n < 20; ++n) {
    table.create_entry("s", std::to_string(n).c_str(), n);
    table.create_entry("", "s0", 100 + n);
    EXPECT_EQ(*table.find_entry("s", "0"), 100 + n);
    EXPECT_EQ(*table.find_entry("s", std::to_string(n).c_str()), n != 0 ? n : 100);
    EXPECT_EQ(table.find_entry("s", std::to_string(n + 1).c_str()), nullptr);
    EXPECT_EQ(table.find_entry(nullptr, nullptr), nullptr);
  }
}

TEST(SettingsTable, OfManyKeysNeedsMemoryOnlyForNamesBeyond255Bytes) {
  _kp_LOG_log_setting_tbl table(3);
  fill_beyond_a_handful(table);
  const std::string usual(254, 'k');
  table.create_entry("s", usual.c_str(), 255);
  const std::string longer(255, 'k');
  {
    const failing_new fault(1, from_then_on);
    EXPECT_EQ(*table.find_entry("s", usual.c_str()), 255U);
    EXPECT_EQ(*table.find_entry("s", "42"), 42U);
    EXPECT_EQ(table.find_entry("t", usual.c_str()), nullptr);
    EXPECT_FALSE(fault.met());
  }
  const unsigned* found = nullptr;
  EXPECT_GE(for_each_failing_new([&] { found = table.find_entry("s", longer.c_str()); }), 1U);
  EXPECT_EQ(found, nullptr);
}

TEST(SettingsTable, JoinsSectionAndKeyWithNothingBetween) {
  kp_String joined("what was there");
  _kp_LOG_log_setting_tbl::_construct_hash_key_string("ab", "c", joined);
  EXPECT_STREQ(joined.c_str(), "abc");
  _kp_LOG_log_setting_tbl::_construct_hash_key_string(nullptr, "c", joined);
  EXPECT_STREQ(joined.c_str(), "c");
  _kp_LOG_log_setting_tbl::_construct_hash_key_string(nullptr, nullptr, joined);
  EXPECT_STREQ(joined.c_str(), "");
}

TEST(SettingsTable, WithoutMemoryKeepsWhatItHolds) {
  _kp_LOG_log_setting_tbl table(3);
  table.create_entry("s", "A", 1);
  const std::string key(300, 'k');
  for_each_failing_new([&] { table.create_entry("s", key.c_str(), 2); },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_EQ(*table.find_entry("s", "A"), 1U);
                         EXPECT_EQ(table.find_entry("s", key.c_str()), nullptr);
                       });
  EXPECT_EQ(*table.find_entry("s", key.c_str()), 2U);
}
