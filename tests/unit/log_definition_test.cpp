#include "logging/log_definition.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <memory>
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

static std::vector<std::string> names_of(const _kp_LOG_log_definition& def) {
  std::vector<std::string> names;
  for (unsigned i = 0; i < def.get_n_attributes(); ++i) {
    const char *name = nullptr, *redirection = nullptr;
    unsigned char type = 0;
    def.get_attr_info_by_index(static_cast<unsigned char>(i), name, type, redirection);
    names.emplace_back(name);
  }
  return names;
}

static void add(_kp_LOG_log_definition& def, const char* name, unsigned char type = 1,
                bool is_selector = false) {
  def.add_attr_info(name, type, is_selector, nullptr);
}

static void fill(_kp_LOG_log_definition& def, unsigned count) {
  for (unsigned i = 0; i < count; ++i) add(def, ("A" + std::to_string(i)).c_str());
}

// ---- attribute entry ----

TEST(AttributeEntry, OwnsCopiesOfItsTextsAndHashesItsName) {
  std::string name = "COLOUR", redirection = "TINT";
  const _kp_LOG_attribute_entry entry(name.c_str(), redirection.c_str(), 9);
  name = redirection = "xxxxxx";
  EXPECT_STREQ(entry.get_name(), "COLOUR");
  EXPECT_STREQ(entry.get_redirection_name(), "TINT");
  EXPECT_EQ(entry.get_type(), 9);
  EXPECT_EQ(entry.get_name_hash(), my_hashcode("COLOUR"));
}

TEST(AttributeEntry, ANullOrEmptyRedirectionIsNone) {
  EXPECT_EQ(_kp_LOG_attribute_entry("A", nullptr, 1).get_redirection_name(), nullptr);
  EXPECT_EQ(_kp_LOG_attribute_entry("A", "", 1).get_redirection_name(), nullptr);
}

TEST(AttributeEntry, ANullNameIsEmpty) {
  _kp_LOG_attribute_entry entry(nullptr, nullptr, 1);
  EXPECT_STREQ(entry.get_name(), "");
  EXPECT_EQ(entry.get_name_hash(), 0U);
  entry.set_name("A");
  entry.set_name(nullptr);
  EXPECT_STREQ(entry.get_name(), "");
}

TEST(AttributeEntry, ANewNameHasANewHash) {
  _kp_LOG_attribute_entry entry("A", nullptr, 1);
  entry.set_name("B");
  EXPECT_STREQ(entry.get_name(), "B");
  EXPECT_EQ(entry.get_name_hash(), 66U);
}

TEST(AttributeEntry, SettersTakeTheirOwnText) {
  const std::string text(100, 'n');
  _kp_LOG_attribute_entry entry(text.c_str(), text.c_str(), 1);
  entry.set_name(entry.get_name() + 1);
  entry.set_redirection_name(entry.get_redirection_name() + 1);
  EXPECT_EQ(entry.get_name(), text.substr(1));
  EXPECT_EQ(entry.get_redirection_name(), text.substr(1));
  entry.set_redirection_name(nullptr);
  EXPECT_EQ(entry.get_redirection_name(), nullptr);
}

TEST(AttributeEntry, ARenamedAttributeIsFoundByItsNewName) {
  _kp_LOG_log_definition def;
  add(def, "A");
  def._find_attr_entry_by_name("A")->set_name("B");
  EXPECT_EQ(def._find_attr_entry_by_name("A"), nullptr);
  ASSERT_NE(def._find_attr_entry_by_name("B"), nullptr);
  fill(def, 20);  // moves the list
  def._find_attr_entry_by_name("B")->set_name("C");
  EXPECT_NE(def._find_attr_entry_by_name("C"), nullptr);
}

// ---- selector message ----

TEST(SelectorMessage, OwnsCopiesOfItsTextsAndKeepsNull) {
  std::string id = "M1", text = "one";
  const _kp_LOG_selector_message message(3, 4, id.c_str(), text.c_str());
  const _kp_LOG_selector_message bare(0, 0, nullptr, nullptr);
  id = text = "xxx";
  EXPECT_EQ(message.get_index(), 3U);
  EXPECT_EQ(message.get_value(), 4U);
  EXPECT_STREQ(message.get_msg_id(), "M1");
  EXPECT_STREQ(message.get_msg_text(), "one");
  EXPECT_EQ(bare.get_msg_id(), nullptr);
  EXPECT_EQ(bare.get_msg_text(), nullptr);
}

TEST(SelectorMessage, WithoutAnyNoLookUpFindsOne) {
  const _kp_LOG_log_definition def;
  EXPECT_EQ(def.get_selector_msg_by_index(0), nullptr);
  EXPECT_EQ(def.get_selector_msg_by_value(0), nullptr);
  EXPECT_EQ(def.get_selector_msg(0), nullptr);
  EXPECT_EQ(def.get_n_selector_msgs(), 0);
}

TEST(SelectorMessage, OfTwoWithOneIndexOrValueTheFirstIsFound) {
  _kp_LOG_log_definition def;
  def.add_selector_msg(1, 10, "FIRST", nullptr);
  def.add_selector_msg(1, 20, "SECOND", nullptr);
  def.add_selector_msg(2, 10, "THIRD", nullptr);
  EXPECT_STREQ(def.get_selector_msg_by_index(1)->get_msg_id(), "FIRST");
  EXPECT_STREQ(def.get_selector_msg_by_value(10)->get_msg_id(), "FIRST");
  EXPECT_STREQ(def.get_selector_msg_by_value(20)->get_msg_id(), "SECOND");
  EXPECT_EQ(def.get_selector_msg_by_index(3), nullptr);
  EXPECT_STREQ(def.get_selector_msg(2)->get_msg_id(), "THIRD");
  EXPECT_EQ(def.get_selector_msg(3), nullptr);
}

TEST(SelectorMessage, TheTwoHundredAndFiftySixthIsRefused) {
  _kp_LOG_log_definition def;
  for (unsigned i = 0; i < 255; ++i) def.add_selector_msg(i, i, nullptr, nullptr);
  EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                [&] { def.add_selector_msg(255, 255, nullptr, nullptr); }),
            corrupted);
  EXPECT_EQ(def.get_n_selector_msgs(), 255);
  EXPECT_EQ(def.get_selector_msg(254)->get_index(), 254U);
}

// ---- definition: fields ----

TEST(Definition, ANewOneIsAllZero) {
  const _kp_LOG_log_definition def;
  EXPECT_EQ(def.get_entry_id(), 0U);
  EXPECT_EQ(def.get_second_word(), 0U);
  EXPECT_EQ(def.get_property_flags(), 0U);
  EXPECT_STREQ(def.get_log_version(), "");
  EXPECT_EQ(def.get_default_msg_id(), nullptr);
  EXPECT_EQ(def.get_default_msg_text(), nullptr);
  EXPECT_EQ(def.get_n_attributes(), 0);
  EXPECT_EQ(def.get_selector_attribute(), nullptr);
}

TEST(Definition, KeepsTheNumbersItIsGiven) {
  _kp_LOG_log_definition def;
  def.set_entry_id(17);
  def.set_second_word(0xFFFFFFFF);
  def.set_property_flags(0x80000000);
  EXPECT_EQ(def.get_entry_id(), 17U);
  EXPECT_EQ(def.get_second_word(), 0xFFFFFFFFU);
  EXPECT_EQ(def.get_property_flags(), 0x80000000U);
}

TEST(Definition, ALogVersionIsCutAtFifteenBytes) {
  _kp_LOG_log_definition def;
  def.set_log_version("1234567890123456");
  EXPECT_STREQ(def.get_log_version(), "123456789012345");
  def.set_log_version("2.0");
  EXPECT_STREQ(def.get_log_version(), "2.0");
  def.set_log_version(nullptr);
  EXPECT_STREQ(def.get_log_version(), "");
}

TEST(Definition, ALogVersionSaysItsNumbers) {
  const struct {
    const char* text;
    unsigned major_number;
    bool has_minor;
    unsigned minor_number;
  } versions[] = {
      {"2.0", 2, true, 0},
      {"12.345", 12, true, 345},
      {"", 0, false, 0},
      {"7", 7, false, 0},
      {".5", 0, true, 5},
      {"x3.4", 0, true, 4},
      {"3x.4x", 3, true, 4},
      {"3.x4", 3, true, 0},
      {"1.2.3", 1, true, 2},
      {" 2.0", 0, true, 0},
      {"-2.-3", 0, true, 0},
      {"9.", 9, true, 0},
      {"4294967295.1", UINT_MAX, true, 1},
      {"4294967296", UINT_MAX, false, 0},
      {"99999999999.9", UINT_MAX, true, 9},
      {"1.99999999999", 1, true, UINT_MAX},
      {"12345678901234.5", UINT_MAX, true, 0},  // cut behind the "."
      {"123456789012345.6", UINT_MAX, false, 0},
  };
  _kp_LOG_log_definition def;
  for (const auto& version : versions) {
    def.set_log_version(version.text);
    const _kp_LOG_version_numbers& numbers = def.get_version_numbers();
    EXPECT_EQ(numbers.major_number, version.major_number) << version.text;
    EXPECT_EQ(numbers.has_minor, version.has_minor) << version.text;
    EXPECT_EQ(numbers.minor_number, version.minor_number) << version.text;
  }
}

TEST(Definition, DefaultMessageTakesItsOwnTextAndNull) {
  _kp_LOG_log_definition def;
  def.set_default_msg_id("the default message's ID, a long one");
  def.set_default_msg_text("the default message's text, a long one");
  def.set_default_msg_id(def.get_default_msg_id() + 4);
  def.set_default_msg_text(def.get_default_msg_text() + 4);
  EXPECT_STREQ(def.get_default_msg_id(), "default message's ID, a long one");
  EXPECT_STREQ(def.get_default_msg_text(), "default message's text, a long one");
  def.set_default_msg_id(nullptr);
  def.set_default_msg_text("");
  EXPECT_EQ(def.get_default_msg_id(), nullptr);
  EXPECT_STREQ(def.get_default_msg_text(), "");
}

// ---- definition: own attributes ----

TEST(OwnAttributes, KeepTheOrderInWhichTheyWereAdded) {
  _kp_LOG_log_definition def;
  def.add_attr_info("B", 2, false, nullptr);
  def.add_attr_info("A", 9, false, "TINT");
  EXPECT_THAT(names_of(def), ElementsAre("B", "A"));
  unsigned char type = 0;
  const char* redirection = nullptr;
  EXPECT_TRUE(def.get_attr_info_by_name("A", type, redirection));
  EXPECT_EQ(type, 9);
  EXPECT_STREQ(redirection, "TINT");
}

TEST(OwnAttributes, AddedTwiceOneIsLeftAtTheEndWithTheSecondType) {
  _kp_LOG_log_definition def;
  add(def, "X", 2);
  add(def, "Y", 3);
  add(def, "X", 4);
  EXPECT_THAT(names_of(def), ElementsAre("Y", "X"));
  EXPECT_EQ(def._find_attr_entry_by_name("X")->get_type(), 4);
}

// Renaming may give several attributes one name.
TEST(OwnAttributes, OfTwoOfOneNameAddingReplacesTheFirst) {
  _kp_LOG_log_definition def;
  add(def, "X", 2);
  add(def, "Y", 3, true);
  add(def, "Z", 4);
  def._find_attr_entry_by_name("Y")->set_name("X");
  add(def, "X", 5);
  EXPECT_THAT(names_of(def), ElementsAre("X", "Z", "X"));
  EXPECT_EQ(def._find_attr_entry_by_name("X")->get_type(), 3);
  EXPECT_EQ(def.get_selector_attribute(), def._find_attr_entry_by_name("X"));
  add(def, "X", 6);
  EXPECT_THAT(names_of(def), ElementsAre("Z", "X", "X"));
  EXPECT_EQ(def._find_attr_entry_by_name("X")->get_type(), 5);
  EXPECT_EQ(def.get_selector_attribute(), nullptr);
}

TEST(OwnAttributes, OfTwoOfOneNameAnAttributeHandedOverReplacesTheFirst) {
  _kp_LOG_log_definition def;
  add(def, "X", 2);
  add(def, "Y", 3, true);
  def._find_attr_entry_by_name("Y")->set_name("X");
  def.add_attr_info(std::make_unique<_kp_LOG_attribute_entry>("X", nullptr, 5), false);
  EXPECT_THAT(names_of(def), ElementsAre("X", "X"));
  EXPECT_EQ(def._find_attr_entry_by_name("X")->get_type(), 3);
  EXPECT_EQ(def.get_selector_attribute(), def._find_attr_entry_by_name("X"));
}

TEST(OwnAttributes, ReplacingTheSelectorWithAPlainOneLeavesNoSelector) {
  _kp_LOG_log_definition def;
  add(def, "X", 2, true);
  EXPECT_EQ(def.get_selector_attribute(), def._find_attr_entry_by_name("X"));
  add(def, "X", 2, false);
  EXPECT_EQ(def.get_selector_attribute(), nullptr);
}

TEST(OwnAttributes, TheLastOneAddedAsSelectorIsIt) {
  _kp_LOG_log_definition def;
  add(def, "X", 2, true);
  add(def, "Y", 2, true);
  EXPECT_STREQ(def.get_selector_attribute()->get_name(), "Y");
}

TEST(OwnAttributes, OneCanBeAddedUnderTheTextsOfTheOneItReplaces) {
  _kp_LOG_log_definition def;
  const std::string name(100, 'n'), redirection(100, 'r');
  def.add_attr_info(name.c_str(), 2, false, redirection.c_str());
  const _kp_LOG_attribute_entry* const old = def._find_attr_entry_by_name(name.c_str());
  def.add_attr_info(old->get_name(), 3, false, old->get_redirection_name());
  EXPECT_THAT(names_of(def), ElementsAre(name));
  EXPECT_EQ(def._find_attr_entry_by_name(name.c_str())->get_redirection_name(), redirection);
}

TEST(OwnAttributes, NamesWithOneHashAreToldApart) {
  // h = 37 * first + second: "A" + 37 more in the second place equals "B".
  const char first[] = {'A', 'z', '\0'}, second[] = {'B', 'z' - 37, '\0'};
  ASSERT_EQ(my_hashcode(first), my_hashcode(second));
  _kp_LOG_log_definition def;
  add(def, first, 2);
  EXPECT_EQ(def._find_attr_entry_by_name(second), nullptr);
  add(def, second, 3);
  EXPECT_EQ(def._find_attr_entry_by_name(first)->get_type(), 2);
  EXPECT_EQ(def._find_attr_entry_by_name(second)->get_type(), 3);
}

TEST(OwnAttributes, ANullNameFindsNothing) {
  _kp_LOG_log_definition def;
  add(def, "");
  unsigned char type = 7;
  const char* redirection = "before";
  EXPECT_EQ(def._find_attr_entry_by_name(nullptr), nullptr);
  EXPECT_EQ(def.get_attr_info_by_name(nullptr), nullptr);
  EXPECT_FALSE(def.get_attr_info_by_name("missing", type, redirection));
  EXPECT_EQ(type, 7);
  EXPECT_STREQ(redirection, "before");
  EXPECT_NE(def._find_attr_entry_by_name(""), nullptr);
}

TEST(OwnAttributes, AnIndexBelowTheCountIsGivenAndTheCountRaises) {
  _kp_LOG_log_definition def;
  add(def, "X");
  add(def, "LAST");
  const char *name = nullptr, *redirection = "";
  unsigned char type = 0;
  def.get_attr_info_by_index(1, name, type, redirection);
  EXPECT_STREQ(name, "LAST");
  EXPECT_EQ(redirection, nullptr);
  EXPECT_EQ(raised<KPX_logging_internal_error>(
                [&] { def.get_attr_info_by_index(2, name, type, redirection); }),
            "_kp_LOG_log_definition::get_attr_info_by_index()");
  EXPECT_EQ(raised<KPX_logging_internal_error>([&] {
              _kp_LOG_log_definition().get_attr_info_by_index(0, name, type, redirection);
            }),
            "_kp_LOG_log_definition::get_attr_info_by_index()");
}

TEST(OwnAttributes, RemovingOneMovesTheLaterOnesDown) {
  _kp_LOG_log_definition def;
  fill(def, 4);
  EXPECT_TRUE(def.remove_attr_by_ptr(def._find_attr_entry_by_name("A1")));
  EXPECT_THAT(names_of(def), ElementsAre("A0", "A2", "A3"));
  EXPECT_NE(def._find_attr_entry_by_name("A3"), nullptr);
  EXPECT_EQ(def._find_attr_entry_by_name("A1"), nullptr);
}

TEST(OwnAttributes, RemovingTheSelectorLeavesNone) {
  _kp_LOG_log_definition def;
  add(def, "X", 2, true);
  EXPECT_TRUE(def.remove_attr_by_ptr(def.get_selector_attribute()));
  EXPECT_EQ(def.get_selector_attribute(), nullptr);
  EXPECT_EQ(def.get_n_attributes(), 0);
}

TEST(OwnAttributes, RemovingWhatNobodyHoldsIsFalse) {
  _kp_LOG_log_definition def, other;
  add(other, "X");
  EXPECT_FALSE(def.remove_attr_by_ptr(nullptr));
  EXPECT_FALSE(def.remove_attr_by_ptr(other._find_attr_entry_by_name("X")));
  EXPECT_THAT(names_of(other), ElementsAre("X"));
}

TEST(OwnAttributes, TheTwoHundredAndFiftySixthIsRefusedButOneCanBeReplaced) {
  _kp_LOG_log_definition def;
  fill(def, 255);
  EXPECT_EQ(raised<KPX_logging_invalid_definition>([&] { add(def, "MORE"); }), corrupted);
  EXPECT_EQ(def.get_n_attributes(), 255);
  EXPECT_EQ(def._find_attr_entry_by_name("MORE"), nullptr);
  add(def, "A0", 24);
  EXPECT_EQ(def.get_n_attributes(), 255);
  const char *name = nullptr, *redirection = nullptr;
  unsigned char type = 0;
  def.get_attr_info_by_index(254, name, type, redirection);
  EXPECT_STREQ(name, "A0");
  EXPECT_EQ(type, 24);
}

// ---- definition: selector attribute ----

TEST(SelectorAttribute, IsSetByNameAndStaysForAnUnknownName) {
  _kp_LOG_log_definition def;
  add(def, "X");
  add(def, "Y");
  def.set_selector_attribute("Y");
  EXPECT_STREQ(def.get_selector_attribute()->get_name(), "Y");
  def.set_selector_attribute("missing");
  def.set_selector_attribute(nullptr);
  EXPECT_STREQ(def.get_selector_attribute()->get_name(), "Y");
}

TEST(SelectorAttribute, ANullNameMeansTheEmptyOne) {
  _kp_LOG_log_definition def;
  add(def, "");
  def.set_selector_attribute(nullptr);
  ASSERT_NE(def.get_selector_attribute(), nullptr);
  EXPECT_STREQ(def.get_selector_attribute()->get_name(), "");
}

TEST(SelectorAttribute, StaysReadableAfterClearing) {
  _kp_LOG_log_definition def;
  add(def, "X", 2, true);
  add(def, "Y");
  const _kp_LOG_attribute_entry* const selector = def.get_selector_attribute();
  def.clear_attr_info();
  def.clear_attr_info();
  EXPECT_EQ(def.get_selector_attribute(), selector);
  EXPECT_STREQ(def.get_selector_attribute()->get_name(), "X");
  EXPECT_EQ(def.get_n_attributes(), 0);
  EXPECT_EQ(def._find_attr_entry_by_name("X"), nullptr);
}

TEST(SelectorAttribute, NothingAddedAfterClearingIsTakenForIt) {
  _kp_LOG_log_definition def;
  add(def, "X", 2, true);
  def.clear_attr_info();
  fill(def, 50);
  add(def, "X");
  EXPECT_NE(def.get_selector_attribute(), def._find_attr_entry_by_name("X"));
  EXPECT_FALSE(def.remove_attr_by_ptr(def.get_selector_attribute()));
  EXPECT_STREQ(def.get_selector_attribute()->get_name(), "X");
  def.set_selector_attribute("A3");
  EXPECT_EQ(def.get_selector_attribute(), def._find_attr_entry_by_name("A3"));
}

TEST(ClearingADefinition, LeavesAllButAttributesAndSelectorMessages) {
  _kp_LOG_log_definition def;
  def.set_entry_id(17);
  def.set_property_flags(2);
  def.set_log_version("2.0");
  def.set_default_msg_id("M");
  def.set_default_msg_text("text");
  fill(def, 3);
  def.add_selector_msg(1, 1, "S", "s");
  def.clear_attr_info();
  EXPECT_THAT(names_of(def), IsEmpty());
  EXPECT_EQ(def.get_n_selector_msgs(), 0);
  EXPECT_EQ(def.get_entry_id(), 17U);
  EXPECT_EQ(def.get_property_flags(), 2U);
  EXPECT_STREQ(def.get_log_version(), "2.0");
  EXPECT_STREQ(def.get_default_msg_id(), "M");
  EXPECT_STREQ(def.get_default_msg_text(), "text");
}

// ---- failed allocations ----

TEST(WithoutMemory, AnAttributeKeepsItsOldTexts) {
  const std::string old(100, 'o'), fresh(100, 'f');
  _kp_LOG_attribute_entry entry(old.c_str(), old.c_str(), 1);
  for_each_failing_new([&] { entry.set_name(fresh.c_str()); },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_EQ(entry.get_name(), old);
                         EXPECT_EQ(entry.get_name_hash(), my_hashcode(old.c_str()));
                       });
  for_each_failing_new([&] { entry.set_redirection_name(fresh.c_str()); },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_EQ(entry.get_redirection_name(), old);
                       });
  EXPECT_EQ(entry.get_name(), fresh);
}

TEST(WithoutMemory, ConstructorsRaise) {
  const std::string text(100, 't');
  EXPECT_EQ(for_each_failing_new(
                [&] { const _kp_LOG_attribute_entry entry(text.c_str(), text.c_str(), 1); }),
            2U);
  EXPECT_EQ(for_each_failing_new(
                [&] { const _kp_LOG_selector_message message(1, 1, text.c_str(), text.c_str()); }),
            2U);
}

// A definition of `count` attributes "A0", ..., and what happens when adding `name` runs out of
// memory at the n-th allocation.
static void fail_to_add(_kp_LOG_log_definition& def, unsigned count, const char* name, unsigned n) {
  fill(def, count);
  def.set_selector_attribute("A0");
  const failing_new fault(n);
  EXPECT_EQ(raised<KPX_memory_alloc>([&] { add(def, name); }), "(null)");
}

TEST(WithoutMemory, AnAdditionLeavesTheListAsItWas) {
  for (const unsigned n : {1U, 2U}) {  // the attribute, the longer list
    _kp_LOG_log_definition def;
    fail_to_add(def, 8, "NEW", n);
    EXPECT_EQ(def.get_n_attributes(), 8);
    EXPECT_EQ(def._find_attr_entry_by_name("NEW"), nullptr);
    EXPECT_STREQ(def.get_selector_attribute()->get_name(), "A0");
  }
}

TEST(WithoutMemory, AReplacementLeavesTheOldOneRemoved) {
  _kp_LOG_log_definition def;
  fail_to_add(def, 3, "A0", 1);
  EXPECT_THAT(names_of(def), ElementsAre("A1", "A2"));
  EXPECT_EQ(def.get_selector_attribute(), nullptr);
}

TEST(WithoutMemory, ADefinitionKeepsItsTextsAndMessages) {
  const std::string old(100, 'o'), fresh(100, 'f');
  _kp_LOG_log_definition def;
  def.set_default_msg_id(old.c_str());
  def.set_default_msg_text(old.c_str());
  for_each_failing_new([&] { def.set_default_msg_id(fresh.c_str()); },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_EQ(def.get_default_msg_id(), old);
                       });
  EXPECT_EQ(def.get_default_msg_id(), fresh);
  for_each_failing_new([&] { def.set_default_msg_text(fresh.c_str()); },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_EQ(def.get_default_msg_text(), old);
                       });
  for_each_failing_new([&] { def.add_selector_msg(1, 1, fresh.c_str(), fresh.c_str()); },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_EQ(def.get_n_selector_msgs(), 0);
                       });
  EXPECT_EQ(def.get_n_selector_msgs(), 1);
}

// ---- sharing ----

TEST(SharedDefinition, LivesAsLongAsItsLastReference) {
  _kp_LOG_definition_ref first(new _kp_LOG_log_definition);
  _kp_LOG_definition_ref second = first;
  const _kp_LOG_log_definition* const definition = first.get();
  first = _kp_LOG_definition_ref();
  EXPECT_FALSE(first);
  ASSERT_TRUE(second);
  EXPECT_EQ(second.get(), definition);
  EXPECT_EQ(second->get_entry_id(), 0U);
  _kp_LOG_definition_ref third(std::move(second));
  third = *&third;
  EXPECT_EQ(third.get(), definition);
}
