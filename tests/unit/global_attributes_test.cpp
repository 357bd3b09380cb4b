// The attributes that every entry may have, beside those of a definition.
#include "logging/log_definition.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "logging/def_read.h"
#include "tests/support/failing.h"
#include "tests/support/raised.h"
#include "tests/support/temp_folder.h"

using testing::ElementsAre;
using testing::IsEmpty;

static const char corrupted[] =
    "<KPX_logging_invalid_definition> The definition file is corrupted.";

// The global list is process-wide: empty before and after.
class GlobalAttributes : public testing::Test {
 protected:
  GlobalAttributes() { _kp_LOG_log_definition::clear_global_attr_info(); }
  ~GlobalAttributes() override { _kp_LOG_log_definition::clear_global_attr_info(); }
};

static std::vector<std::string> global_names() {
  std::vector<std::string> names;
  for (unsigned i = 0; i < _kp_LOG_log_definition::n_global_attr_entries; ++i)
    names.emplace_back(_kp_LOG_log_definition::p_global_attr_entries[i]->get_name());
  return names;
}

// ---- global attributes ----

TEST_F(GlobalAttributes, AreEmptyAtFirst) {
  EXPECT_EQ(_kp_LOG_log_definition::p_global_attr_entries, nullptr);
  EXPECT_EQ(_kp_LOG_log_definition::n_global_attr_entries, 0);
  unsigned char type = 7;
  EXPECT_FALSE(_kp_LOG_log_definition::get_global_attr_info_by_name("G", type));
  EXPECT_EQ(type, 7);
  EXPECT_EQ(_kp_LOG_log_definition::_find_global_attr_entry_by_name(nullptr), nullptr);
}

TEST_F(GlobalAttributes, AddedTwiceOneIsLeftAtTheEnd) {
  _kp_LOG_log_definition::add_global_attr_info("G", 1);
  _kp_LOG_log_definition::add_global_attr_info("H", 2);
  _kp_LOG_log_definition::add_global_attr_info("G", 3);
  EXPECT_THAT(global_names(), ElementsAre("H", "G"));
  unsigned char type = 0;
  EXPECT_TRUE(_kp_LOG_log_definition::get_global_attr_info_by_name("G", type));
  EXPECT_EQ(type, 3);
}

TEST_F(GlobalAttributes, AreFoundByIndexAndTheCountRaises) {
  _kp_LOG_log_definition::add_global_attr_info("G", 5);
  const char* name = nullptr;
  unsigned char type = 0;
  _kp_LOG_log_definition::get_global_attr_info_by_index(0, name, type);
  EXPECT_STREQ(name, "G");
  EXPECT_EQ(type, 5);
  EXPECT_EQ(raised<KPX_logging_index_out_of_bound>(
                [&] { _kp_LOG_log_definition::get_global_attr_info_by_index(1, name, type); }),
            "_kp_LOG_log_definition::get_global_attr_info_by_index()");
}

TEST_F(GlobalAttributes, AreShadowedByAnOwnOneUntilThatIsRemoved) {
  _kp_LOG_log_definition::add_global_attr_info("X", 1);
  _kp_LOG_log_definition def;
  def.add_attr_info("X", 2, false, "TO");
  EXPECT_EQ(def.get_attr_info_by_name("X")->get_type(), 2);
  EXPECT_TRUE(def.remove_attr_by_ptr(def._find_attr_entry_by_name("X")));
  unsigned char type = 0;
  const char* redirection = "before";
  EXPECT_TRUE(def.get_attr_info_by_name("X", type, redirection));
  EXPECT_EQ(type, 1);
  EXPECT_EQ(redirection, nullptr);
}

TEST_F(GlobalAttributes, CanBeRemovedThroughADefinition) {
  _kp_LOG_log_definition::add_global_attr_info("G", 1);
  _kp_LOG_log_definition::add_global_attr_info("H", 1);
  _kp_LOG_log_definition def;
  EXPECT_TRUE(def.remove_attr_by_ptr(_kp_LOG_log_definition::_find_global_attr_entry_by_name("G")));
  EXPECT_THAT(global_names(), ElementsAre("H"));
  EXPECT_TRUE(_kp_LOG_log_definition::_remove_global_attr_by_ptr(
      _kp_LOG_log_definition::p_global_attr_entries[0]));
  EXPECT_EQ(_kp_LOG_log_definition::p_global_attr_entries, nullptr);
  EXPECT_FALSE(_kp_LOG_log_definition::_remove_global_attr_by_ptr(nullptr));
}

TEST_F(GlobalAttributes, OneCanBeAddedUnderItsOwnStoredName) {
  const std::string name(100, 'g');
  _kp_LOG_log_definition::add_global_attr_info(name.c_str(), 1);
  _kp_LOG_log_definition::add_global_attr_info(
      _kp_LOG_log_definition::p_global_attr_entries[0]->get_name(), 2);
  EXPECT_THAT(global_names(), ElementsAre(name));
}

TEST_F(GlobalAttributes, TheTwoHundredAndFiftySixthIsRefused) {
  for (unsigned i = 0; i < 255; ++i)
    _kp_LOG_log_definition::add_global_attr_info(("G" + std::to_string(i)).c_str(), 1);
  EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                [] { _kp_LOG_log_definition::add_global_attr_info("MORE", 1); }),
            corrupted);
  EXPECT_EQ(_kp_LOG_log_definition::n_global_attr_entries, 255);
  _kp_LOG_log_definition::add_global_attr_info("G7", 2);
  EXPECT_EQ(_kp_LOG_log_definition::n_global_attr_entries, 255);
}

TEST_F(GlobalAttributes, ClearingDropsThemAll) {
  _kp_LOG_log_definition::add_global_attr_info("G", 1);
  _kp_LOG_log_definition::clear_global_attr_info();
  EXPECT_EQ(_kp_LOG_log_definition::p_global_attr_entries, nullptr);
  EXPECT_EQ(_kp_LOG_log_definition::n_global_attr_entries, 0);
}

TEST_F(GlobalAttributes, LookUpsThatFindNothingTellNothing) {
  const debug_log_in_temp_folder log(9);
  const _kp_LOG_log_definition def;
  const char *name = nullptr, *redirection = nullptr;
  unsigned char type = 0;
  EXPECT_EQ(def._find_attr_entry_by_name("A"), nullptr);
  EXPECT_EQ(def.get_attr_info_by_name("A"), nullptr);
  EXPECT_FALSE(def.get_attr_info_by_name("A", type, redirection));
  EXPECT_EQ(def.get_selector_msg_by_index(1), nullptr);
  EXPECT_EQ(def.get_selector_msg_by_value(1), nullptr);
  EXPECT_EQ(_kp_LOG_log_definition::_find_global_attr_entry_by_name("A"), nullptr);
  EXPECT_FALSE(_kp_LOG_log_definition::get_global_attr_info_by_name("A", type));
  EXPECT_EQ(raised<KPX_logging_internal_error>(
                [&] { def.get_attr_info_by_index(0, name, type, redirection); }),
            "_kp_LOG_log_definition::get_attr_info_by_index()");
  EXPECT_EQ(raised<KPX_logging_index_out_of_bound>(
                [&] { _kp_LOG_log_definition::get_global_attr_info_by_index(0, name, type); }),
            "_kp_LOG_log_definition::get_global_attr_info_by_index()");
  EXPECT_THAT(log.lines(), IsEmpty());
}
TEST_F(GlobalAttributes, KeepTheOtherOnesWhenMemoryIsShort) {
  const std::string name(100, 'g');
  _kp_LOG_log_definition::add_global_attr_info("H", 1);
  for_each_failing_new([&] { _kp_LOG_log_definition::add_global_attr_info(name.c_str(), 1); },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_THAT(global_names(), ElementsAre("H"));
                       });
  EXPECT_THAT(global_names(), ElementsAre("H", name));
}
