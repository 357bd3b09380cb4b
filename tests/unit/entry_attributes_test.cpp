// The attributes that an entry holds: values from outside, removal, queries, declarations at run
// time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "logging/logentry_i.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"

using entry_t = _kp_LOG_log_entry_imp;
using testing::ElementsAre;
using testing::IsEmpty;

// --- Values from outside ------------------------------------------------------------------------

TEST(EntryAttributes, AValueFromOutsideIsOwnedByTheEntry) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  auto* value = new _kp_LOG_datatype<kp_String, TypeChar32>(kp_String(1000, 'x'));
  entry._add_attribute("A9", value);
  unsigned char type = 0;
  EXPECT_EQ(entry._get_attribute_internal("A9", type), value);
  EXPECT_EQ(type, TypeChar32);
  EXPECT_EQ(entry.get_attrib_str("A9"), std::string(1000, 'x'));
}

TEST(EntryAttributes, AValueFromOutsideReplacesAHeldOneInPlace) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_4u("A6", 1);
  unsigned char type = 0;
  const _kp_LOG_type_base* before = entry._get_attribute_internal("A6", type);
  entry._add_attribute("A6", new _kp_LOG_datatype<unsigned, TypeUInt4>(2));
  EXPECT_EQ(entry._get_attribute_internal("A6", type), before);
  EXPECT_EQ(entry.get_attrib_4u("A6"), 2U);
}

TEST(EntryAttributes, AValueOfAnotherTypeTakesTheHeldOnesPlace) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_str("A14", std::string(500, 'x').c_str(), true);
  entry._add_attribute("A14", new _kp_LOG_datatype<unsigned, TypeUInt4>(2));
  EXPECT_EQ(entry.get_attrib_4u("A14"), 2U);
  entry._add_attribute("A14", new _kp_LOG_datatype<kp_String, TypeChar64>(kp_String(500, 'y')));
  EXPECT_EQ(entry.get_attrib_str("A14"), std::string(500, 'y'));
  entry.add_attrib_str("A14", "back", true);
  EXPECT_STREQ(entry.get_attrib_str("A14"), "back");
}

TEST(EntryAttributes, TheHeldValueItselfMayBeHandedInAgain) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  auto* value = new _kp_LOG_datatype<unsigned, TypeUInt4>(2);
  entry._add_attribute("A6", value);
  entry._add_attribute("A6", value);
  EXPECT_EQ(entry.get_attrib_4u("A6"), 2U);
}

TEST(EntryAttributes, AValueWithoutANameIsRefusedAndStaysTheCallers) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  _kp_LOG_datatype<unsigned, TypeUInt4> value(2);
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    const debug_log_in_temp_folder log(1);
    EXPECT_EQ(raised<KPX_logging_illegal_argument>([&] { entry._add_attribute(name, &value); }),
              "invalid argument");
    EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N "
                                         "_kp_LOG_log_entry_imp::_add_attribute, name=NULL"));
  }
  EXPECT_EQ(raised<KPX_logging_illegal_argument>([&] { entry._add_attribute("A6", nullptr); }),
            "invalid argument");
}

TEST(EntryAttributes, AValueOfNoTypeIsRefusedAndStaysTheCallers) {
  const loaded_definitions definitions(ldf_with_every_type("text"));
  entry_t entry(17, 0);
  _kp_LOG_datatype<unsigned, 0> unknown(2);
  _kp_LOG_datatype<unsigned, 25> behind_the_last(2);
  _kp_LOG_datatype<unsigned, 255> highest(2);
  for (_kp_LOG_type_base* value :
       std::initializer_list<_kp_LOG_type_base*>{&unknown, &behind_the_last, &highest}) {
    EXPECT_EQ(raised<KPX_logging_illegal_argument>([&] { entry._add_attribute("A6", value); }),
              "invalid argument");
    EXPECT_FALSE(entry._holds("A6"));
  }
}

// --- A definition that changes under held values ------------------------------------------------

TEST(EntryAttributes, AValueOfTheFormerTypeIsReplacedByOneOfTheNew) {
  const ldf_file unsigned_x{.entries = {{.id = 17, .attributes = {{"X", TypeUInt4}}}}};
  const ldf_file text_x{.entries = {{.id = 17, .attributes = {{"X", TypeChar2K}}}}};
  const ldf_file time_x{.entries = {{.id = 17, .attributes = {{"X", TypeDate}}}}};
  const loaded_definitions definitions(unsigned_x);
  entry_t entry(17, 0);
  entry.add_attrib_4u("X", 5);
  definitions.load(text_x);
  entry.set_entry_id(17);
  EXPECT_EQ(entry.get_attrib_4u("X"), 5U);
  entry.add_attrib_str("X", std::string(999, 'x').c_str(), true);
  EXPECT_EQ(entry.get_attrib_str("X"), std::string(999, 'x'));
  definitions.load(time_x);
  entry.set_entry_id(17);
  entry.add_attrib_time("X", some_time());
  EXPECT_EQ(entry.get_attrib_time("X").compare_time(some_time()), 0);
}

TEST(EntryAttributes, TextsOfDifferentClassesReplaceEachOther) {
  const loaded_definitions definitions(
      {.entries = {{.id = 17, .attributes = {{"X", TypeChar64}}},
                   {.id = 18, .attributes = {{"X", TypeMBChar64}}}}});
  entry_t entry(17, 0);
  entry.add_attrib_str("X", std::string(50, 'a').c_str(), true);
  entry.set_entry_id(18);
  entry.add_attrib_mbstr("X", std::string(50, 'b').c_str(), true);
  EXPECT_EQ(entry.get_attrib_mbstr("X"), std::string(50, 'b'));
  entry.set_entry_id(17);
  entry.add_attrib_str("X", std::string(50, 'c').c_str(), true);
  EXPECT_EQ(entry.get_attrib_str("X"), std::string(50, 'c'));
}

TEST(EntryAttributes, AnEntryOutlivesTheClearingOfItsDefinition) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  kp_LOG_LogConfig::ClearDefinitions();
  entry.add_attrib_4u("A6", 5);
  EXPECT_EQ(entry.get_attrib_4u("A6"), 5U);
  EXPECT_EQ(raised<KPX_logging_entry_type_not_found>([] { entry_t(17, 0); }),
            "Entry id argument is invalid");
  EXPECT_THROW(entry.set_severity_code(1), KPX_logging_invalid_attribute_name);
}

TEST(EntryAttributes, AnEntryOutlivesTheReuseOfItsDefinitionsPlace) {
  ldf_file file;
  for (unsigned id = 1; id <= 300; ++id)
    file.entries.push_back({.id = id, .attributes = {{"X" + std::to_string(id), TypeUInt4}}});
  const loaded_definitions definitions(file);
  entry_t first(1, 0);
  for (unsigned id = 2; id <= 300; ++id) {
    entry_t other(id, 0);
    other.add_attrib_4u(("X" + std::to_string(id)).c_str(), id);
  }
  first.add_attrib_4u("X1", 5);
  EXPECT_EQ(first.get_attrib_4u("X1"), 5U);
  EXPECT_THROW(first.add_attrib_4u("X129", 5), KPX_logging_invalid_attribute_name);
}

// --- Removal and clearing -----------------------------------------------------------------------

TEST(EntryAttributes, RemovingTellsWhetherTheAttributeWasHeld) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_4u("A6", 5);
  EXPECT_TRUE(entry.remove_attrib("A6"));
  EXPECT_FALSE(entry.remove_attrib("A6"));
  EXPECT_FALSE(entry.remove_attrib("FOO"));
}

TEST(EntryAttributes, RemovingNeedsNoDefinition) {
  entry_t entry;
  EXPECT_FALSE(entry.remove_attrib("FOO"));
}

TEST(EntryAttributes, ANullOrEmptyNameIsRefusedByRemoval) {
  entry_t entry;
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    const debug_log_in_temp_folder log(1);
    EXPECT_EQ(raised<KPX_logging_illegal_argument>([&] { entry.remove_attrib(name); }),
              "invalid argument");
    EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N "
                                         "_kp_LOG_log_entry_imp::remove_attrib, name==NULL"));
    EXPECT_EQ(log.raw().back(), 'L');
  }
}

TEST(EntryAttributes, ANameIsHeldOnlyWhileItsValueIs) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  EXPECT_FALSE(entry._holds("A6"));
  entry.add_attrib_4u("A6", 0);
  EXPECT_TRUE(entry._holds("A6"));
  EXPECT_FALSE(entry._holds(nullptr));
  EXPECT_FALSE(entry._holds(""));
}

// --- Queries ------------------------------------------------------------------------------------

TEST(EntryAttributes, AQueryTellsHeldDeclaredAndUnknownApart) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_4u("A6", 0);
  kp_AttributeType type = TypeGUID;
  EXPECT_EQ(entry.check_attribute("A6", type), 0);
  EXPECT_EQ(type, TypeUInt4);
  EXPECT_EQ(entry.check_attribute("A7", type), 1);
  EXPECT_EQ(type, TypeSInt4);
  EXPECT_EQ(entry.check_attribute("SEVERITY_CODE", type), 1);
  EXPECT_EQ(type, TypeUInt1);
  EXPECT_EQ(entry.check_attribute("FOO", type), -1);
  EXPECT_EQ(type, TypeUnknown);
}

TEST(EntryAttributes, AQueryForANullOrEmptyNameLeavesTheTypeAlone) {
  entry_t entry;
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    kp_AttributeType type = TypeGUID;
    EXPECT_EQ(entry.check_attribute(name, type), -1);
    EXPECT_EQ(type, TypeGUID);
  }
}

TEST(EntryAttributes, AnEntryWithoutADefinitionKnowsTheGlobalAttributes) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry;
  kp_AttributeType type = TypeGUID;
  EXPECT_EQ(entry.check_attribute("SEVERITY_CODE", type), 1);
  EXPECT_EQ(type, TypeUInt1);
  EXPECT_EQ(entry.check_attribute("A6", type), -1);
  EXPECT_EQ(type, TypeUnknown);
}

// --- Run-time declarations ----------------------------------------------------------------------

TEST(EntryAttributes, AGlobalAttributeIsDeclaredOnce) {
  const loaded_definitions definitions(ldf_with_every_type());
  const debug_log_in_temp_folder log(2);
  EXPECT_TRUE(entry_t::add_product_specific_attribute_definition(
      0, "X", static_cast<kp_AttributeType>(25)));
  EXPECT_FALSE(entry_t::add_product_specific_attribute_definition(
      0, "X", static_cast<kp_AttributeType>(25)));
  EXPECT_FALSE(entry_t::add_product_specific_attribute_definition(0, "SEVERITY_CODE", TypeFloat));
  EXPECT_THAT(log.lines(), IsEmpty());
  entry_t entry(17, 0);
  kp_AttributeType type = TypeUnknown;
  EXPECT_EQ(entry.check_attribute("X", type), 1);
  EXPECT_EQ(type, 25);
  EXPECT_EQ(entry.check_attribute("SEVERITY_CODE", type), 1);
  EXPECT_EQ(type, TypeUInt1);
}

TEST(EntryAttributes, AnAttributeOfOneTypeIsDeclaredOnce) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  EXPECT_TRUE(entry_t::add_product_specific_attribute_definition(17, "X", TypeUInt4));
  EXPECT_FALSE(entry_t::add_product_specific_attribute_definition(17, "X", TypeFloat));
  EXPECT_FALSE(entry_t::add_product_specific_attribute_definition(17, "A1", TypeFloat));
  EXPECT_FALSE(entry_t::add_product_specific_attribute_definition(17, "SEVERITY_CODE", TypeFloat));
  entry.add_attrib_4u("X", 5);
  EXPECT_EQ(entry.get_attrib_4u("X"), 5U);
}

TEST(EntryAttributes, ADeclarationOutlivesTheDefinitionsPlaceInTheCache) {
  ldf_file file = ldf_with_every_type();
  for (unsigned id = 100; id < 300; ++id) file.entries.push_back({.id = id});
  const loaded_definitions definitions(file);
  ASSERT_TRUE(entry_t::add_product_specific_attribute_definition(17, "X", TypeUInt4));
  for (unsigned id = 100; id < 300; ++id) entry_t(id, 0);
  entry_t entry(17, 0);
  entry.add_attrib_4u("X", 5);
  EXPECT_EQ(entry.get_attrib_4u("X"), 5U);
  EXPECT_FALSE(entry_t::add_product_specific_attribute_definition(17, "X", TypeFloat));
}

TEST(EntryAttributes, DeclarationsEndWithTheDefinitions) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_AttributeType type = TypeUnknown;
  for (const bool by_clearing : {true, false}) {
    entry_t::add_product_specific_attribute_definition(17, "X", TypeUInt4);
    EXPECT_EQ(entry_t(17, 0).check_attribute("X", type), 1);
    if (by_clearing) kp_LOG_LogConfig::ClearDefinitions();
    definitions.load(ldf_with_every_type());
    EXPECT_EQ(entry_t(17, 0).check_attribute("X", type), -1);
  }
}

TEST(EntryAttributes, AGlobalDeclarationOutlivesADefinitionFile) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t::add_product_specific_attribute_definition(0, "X", TypeUInt4);
  definitions.load(ldf_with_every_type());
  kp_AttributeType type = TypeUnknown;
  EXPECT_EQ(entry_t(17, 0).check_attribute("X", type), 1);
  kp_LOG_LogConfig::ClearDefinitions();
  definitions.load(ldf_with_every_type());
  EXPECT_EQ(entry_t(17, 0).check_attribute("X", type), -1);
}

TEST(EntryAttributes, DeclaringAnAttributeIsLogged) {
  const loaded_definitions definitions(ldf_with_every_type());
  const debug_log_in_temp_folder log(2);
  EXPECT_TRUE(entry_t::add_product_specific_attribute_definition(17, "X", TypeUInt4));
  EXPECT_THAT(log.lines(),
              ElementsAre("logging/logentry_i:N "
                          "_kp_LOG_log_entry_imp::add_product_specific_attribute_definition, "
                          "id=17, name=X, type=6 "));
}

TEST(EntryAttributes, AnUnknownEntryTypeTakesNoDeclaration) {
  const loaded_definitions definitions(ldf_with_every_type());
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(raised<KPX_logging_entry_type_not_found>(
                [] { entry_t::add_product_specific_attribute_definition(18, "X", TypeUInt4); }),
            "Entry id argument is invalid");
  EXPECT_THAT(log.lines(),
              ElementsAre("logging/logentry_i:N "
                          "_kp_LOG_log_entry_imp::add_product_specific_attribute_definition, "
                          "entry id is invalid"));
}

TEST(EntryAttributes, DeclarationsWithoutANameOrWithAWrongTypeAreRefused) {
  const loaded_definitions definitions(ldf_with_every_type());
  const std::pair<const char*, int> cases[] = {{nullptr, 6}, {"", 6},        {"X", 26},
                                               {"X", -1},    {"X", INT_MIN}, {"X", INT_MAX}};
  for (unsigned id : {0U, 17U, 18U}) {
    for (const auto& [name, type] : cases) {
      const debug_log_in_temp_folder log(1);
      EXPECT_EQ(raised<KPX_logging_illegal_argument>([&, n = name, t = type] {
                  entry_t::add_product_specific_attribute_definition(
                      id, n, static_cast<kp_AttributeType>(t));
                }),
                "invalid argument");
      EXPECT_THAT(log.lines(),
                  ElementsAre("logging/logentry_i:N "
                              "_kp_LOG_log_entry_imp::add_product_specific_attribute_definition, "
                              "invalid argument"));
    }
  }
}
