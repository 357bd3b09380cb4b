// Attributes that the program declares for an entry type: what the definition table remembers of
// them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <string>
#include <vector>

#include "logging/ldf_load.h"
#include "tests/support/definition_table.h"
#include "tests/support/failing.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/raised.h"
#include "tests/support/temp_folder.h"

using testing::ElementsAre;

// A table of the entry types 1 to 200, each with one attribute "N" followed by its ID, and no
// global attributes before and after.
class DeclaredAttributes : public testing::Test {
 protected:
  DeclaredAttributes() {
    _kp_LOG_log_definition::clear_global_attr_info();
    for (unsigned id = 1; id <= 200; ++id)
      std_file_.entries.push_back({.id = id, .attributes = {{"N" + std::to_string(id), 6}}});
    set_std();
  }
  ~DeclaredAttributes() override { _kp_LOG_log_definition::clear_global_attr_info(); }

  void set_std() {
    table_.set_precompiled_definition_file_path(
        folder_.write("std.ldf", std_file_.bytes()).c_str());
  }
  void set_aux(ldf_entry entry) {
    ldf_file file;
    file.entries.push_back(std::move(entry));
    table_.set_precompiled_aux_definition_file_path(folder_.write("aux.ldf", file.bytes()).c_str());
  }

  // Declares and says whether the attribute is new; the entry type must be known.
  bool declare(unsigned id, const char* name, unsigned char type) {
    bool found = false;
    const bool is_new = table_.declare_attribute(id, name, type, found);
    EXPECT_TRUE(found);
    return is_new;
  }
  // Fills every place of the cache with another entry type than 1 and 2.
  void push_out() {
    for (unsigned id = 3; id < 3 + 128; ++id) ASSERT_NE(table_.find_entry(id), nullptr);
  }
  std::vector<std::string> names_of(unsigned id) { return attribute_names(*table_.find_entry(id)); }
  unsigned type_of(unsigned id, const char* name) {
    return table_.find_entry(id)->get_attr_info_by_name(name)->get_type();
  }

  temp_folder folder_;
  ldf_file std_file_;
  _kp_LOG_log_definition_tbl table_;
};

TEST_F(DeclaredAttributes, AreDeclaredOnce) {
  _kp_LOG_log_definition::add_global_attr_info("G", 1);
  EXPECT_TRUE(declare(1, "NEW", 9));
  EXPECT_FALSE(declare(1, "NEW", 2));
  EXPECT_FALSE(declare(1, "N1", 2));
  EXPECT_FALSE(declare(1, "G", 2));
  EXPECT_EQ(type_of(1, "NEW"), 9U);
  EXPECT_THAT(names_of(1), ElementsAre("N1", "NEW"));
}

TEST_F(DeclaredAttributes, OfAnUnknownEntryTypeFindNone) {
  bool found = true;
  EXPECT_FALSE(table_.declare_attribute(999, "NEW", 9, found));
  EXPECT_FALSE(found);
}

TEST_F(DeclaredAttributes, ComeBackWithTheirDefinitionInTheirOrder) {
  const _kp_LOG_definition_ref before = table_.acquire_entry(1);
  EXPECT_TRUE(declare(1, "Z", 9));
  EXPECT_TRUE(declare(2, "OF_ANOTHER", 1));
  EXPECT_TRUE(declare(1, "A", 25));
  for (unsigned round = 0; round < 2; ++round) {
    push_out();
    EXPECT_NE(table_.find_entry(1), before.get());
    EXPECT_THAT(names_of(1), ElementsAre("N1", "Z", "A"));
    EXPECT_EQ(type_of(1, "Z"), 9U);
    EXPECT_EQ(type_of(1, "A"), 25U);
    EXPECT_FALSE(declare(1, "Z", 2));
  }
  EXPECT_THAT(names_of(2), ElementsAre("N2", "OF_ANOTHER"));
}

TEST_F(DeclaredAttributes, ReachDefinitionsThatAreInUseWhereverTheyWent) {
  const _kp_LOG_definition_ref cleared = table_.acquire_entry(1);
  set_std();
  const _kp_LOG_definition_ref pushed_out = table_.acquire_entry(1);
  push_out();
  const _kp_LOG_definition_ref of_another = table_.acquire_entry(2);
  push_out();
  EXPECT_TRUE(declare(1, "NEW", 9));
  for (const auto* definition : {&cleared, &pushed_out})
    EXPECT_THAT(attribute_names(*definition->get()), ElementsAre("N1", "NEW"));
  EXPECT_THAT(attribute_names(*of_another.get()), ElementsAre("N2"));
  EXPECT_THAT(names_of(1), ElementsAre("N1", "NEW"));
}

// The heap tells: of thousands of definitions that left the cache while an entry used each, those
// that are used no more are gone.
TEST_F(DeclaredAttributes, KeepNoDefinitionThatIsUsedNoMore) {
  const auto use_and_push_out = [&] {
    for (unsigned round = 0; round < 40; ++round) {
      const _kp_LOG_definition_ref used = table_.acquire_entry(1 + round % 2);
      push_out();
    }
  };
  use_and_push_out();
  const size_t before = mallinfo2().uordblks;
  use_and_push_out();
  EXPECT_LT(mallinfo2().uordblks, before + 32U * 1024);
}

TEST_F(DeclaredAttributes, AreNotChangedByALaterGlobalAttributeOfTheirName) {
  EXPECT_TRUE(declare(1, "NEW", 9));
  _kp_LOG_log_definition::add_global_attr_info("NEW", 2);
  EXPECT_EQ(type_of(1, "NEW"), 9U);
  push_out();
  EXPECT_EQ(type_of(1, "NEW"), 9U);
}

TEST_F(DeclaredAttributes, GiveWayToARecordThatDeclaresTheName) {
  EXPECT_TRUE(declare(1, "NEW", 9));
  EXPECT_TRUE(declare(1, "OTHER", 9));
  EXPECT_EQ(raised<KPX_logging_invalid_definition>([&] {
              set_aux({.id = 1, .attributes = {{"NEW", 2}}});
            }),
            "<KPX_logging_invalid_definition> attribute NEW already exist.");
  EXPECT_EQ(type_of(1, "NEW"), 9U);
  push_out();
  EXPECT_THAT(names_of(1), ElementsAre("NEW", "OTHER"));
  EXPECT_EQ(type_of(1, "NEW"), 2U);
}

TEST_F(DeclaredAttributes, StayWithAMergedEntryThatIsLoadedAgain) {
  EXPECT_TRUE(declare(1, "BEFORE", 9));
  push_out();
  set_aux({.id = 1, .attributes = {{"AUX", 1}}});
  EXPECT_TRUE(declare(1, "BEHIND", 9));
  EXPECT_THAT(names_of(1), ElementsAre("N1", "BEFORE", "AUX", "BEHIND"));
  push_out();
  EXPECT_THAT(names_of(1), ElementsAre("AUX", "BEFORE", "BEHIND"));
}

TEST_F(DeclaredAttributes, AreForgottenWhenTheTableIsClearedOrGetsANewStdFile) {
  for (const bool by_clearing : {true, false}) {
    EXPECT_TRUE(declare(1, "NEW", 9));
    if (by_clearing) table_.clear();
    set_std();
    EXPECT_THAT(names_of(1), ElementsAre("N1"));
  }
}

TEST_F(DeclaredAttributes, WithoutAPlaceAreNotRemembered) {
  auto& attributes = std_file_.entries[0].attributes;
  while (attributes.size() < 255) attributes.push_back({"A" + std::to_string(attributes.size())});
  set_std();
  bool found = false;
  EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                [&] { table_.declare_attribute(1, "ONE_MORE", 9, found); }),
            "<KPX_logging_invalid_definition> The definition file is corrupted.");
  push_out();
  EXPECT_EQ(table_.find_entry(1)->get_n_attributes(), 255);
}

TEST_F(DeclaredAttributes, ComeBackWithoutALineOfTheirOwn) {
  EXPECT_TRUE(declare(1, "NEW", 9));
  push_out();
  const debug_log_in_temp_folder log(3);
  const _kp_LOG_log_definition* const again = table_.find_entry(1);
  EXPECT_THAT(log.lines(),
              ElementsAre("logging/ldf_load:N _kp_LOG_log_definition_tbl::_find_entry_non_const "
                          "n_entry_definitions_cached:128",
                          "logging/ldf_load:N "
                          "_kp_LOG_log_definition_tbl::_retrieve_entry_definition return true"));
  EXPECT_NE(again->_find_attr_entry_by_name("NEW"), nullptr);
}

TEST_F(DeclaredAttributes, WithoutMemoryAreNotDeclared) {
  const std::string name(100, 'n');
  table_.find_entry(1);
  bool found = false;
  const unsigned failures = for_each_failing_new(
      [&] { EXPECT_TRUE(table_.declare_attribute(1, name.c_str(), 9, found)); },
      [&](const std::exception_ptr& outcome) {
        expect_memory_alloc(outcome);
        EXPECT_THAT(names_of(1), ElementsAre("N1"));
        push_out();
        EXPECT_THAT(names_of(1), ElementsAre("N1"));
      });
  EXPECT_GE(failures, 4U);  // what is remembered, what is declared, and the name of each
  push_out();
  EXPECT_THAT(names_of(1), ElementsAre("N1", name));
}

TEST_F(DeclaredAttributes, WithoutMemoryKeepTheirDefinitionFromBeingLoaded) {
  const std::string name(100, 'n');
  EXPECT_TRUE(declare(1, name.c_str(), 9));
  const _kp_LOG_definition_ref used = table_.acquire_entry(1);  // which does not come back then
  push_out();
  const _kp_LOG_log_definition* const kept = table_.find_entry(3);
  const unsigned failures = for_each_failing_new([&] { table_.find_entry(1); },
                                                 [&](const std::exception_ptr& outcome) {
                                                   expect_memory_alloc(outcome);
                                                   EXPECT_EQ(table_.find_entry(3), kept);
                                                 });
  EXPECT_GE(failures, 3U);  // the definition, the declared attribute, its name
  EXPECT_THAT(names_of(1), ElementsAre("N1", name));
}
