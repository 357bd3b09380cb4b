// An entry's header: ID, level, log version, timestamp, built-in fields, and the full clear.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/logentry_i.h"
#include "tests/support/entry_header.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"

using entry_t = _kp_LOG_log_entry_imp;
using testing::ElementsAre;

static void start_version(unsigned major, unsigned minor) {
  entry_t::log_major_version = major;
  entry_t::log_minor_version = minor;
}

static std::string stored_version() {
  return std::to_string(entry_t::log_major_version) + "," +
         std::to_string(entry_t::log_minor_version);
}

// --- Construction -------------------------------------------------------------------------------

TEST(EntryHeader, AnEmptyEntryHasNothing) {
  const loaded_definitions definitions(entry_types({17}));
  const entry_t entry;
  EXPECT_EQ(entry.get_entry_id(), 0U);
  EXPECT_EQ(entry.get_log_level(), 0U);
  EXPECT_EQ(entry.get_property_mask(), 0U);
  EXPECT_STREQ(entry.get_version_text(), "");
  EXPECT_EQ(entry.get_definition(), nullptr);
}

TEST(EntryHeader, AnEmptyEntryTakesTheVersionOfTheFirstDefinitionBelowTen) {
  const loaded_definitions definitions(entry_types({17, 9, 3}, "3.7"));
  start_version(0, 0);
  const entry_t entry;
  EXPECT_STREQ(entry.get_version_text(), "3.7");
  EXPECT_EQ(stored_version(), "3,7");
  EXPECT_EQ(entry.get_entry_id(), 0U);
  EXPECT_EQ(entry.get_definition(), nullptr);
}

TEST(EntryHeader, OfTwoTypesBelowTenTheLowerIdSaysTheVersion) {
  struct {
    unsigned std_id, aux_id;
    const char* version;
    unsigned major;
  } const cases[] = {{3, 5, "3.7", 3}, {5, 3, "4.1", 4}, {0, 9, "3.7", 3}, {9, 0, "4.1", 4}};
  for (const auto& c : cases) {
    const loaded_definitions definitions(entry_types({c.std_id}, "3.7"));
    const temp_folder folder;
    const std::string aux = folder.write("aux.ldf", entry_types({c.aux_id}, "4.1").bytes());
    kp_LOG_LogConfig::SetAuxDefinitionPath(aux.c_str());
    EXPECT_STREQ(entry_t().get_version_text(), c.version) << c.std_id << " and " << c.aux_id;
    EXPECT_EQ(entry_t::get_log_major_version(), c.major);
  }
}

TEST(EntryHeader, TypesFromTenOnSayNoVersionToAnEmptyEntry) {
  const loaded_definitions definitions(entry_types({10, 4294967295U}, "3.7"));
  start_version(2, 5);
  const entry_t entry;
  EXPECT_STREQ(entry.get_version_text(), "");
  EXPECT_EQ(stored_version(), "2,5");
}

TEST(EntryHeader, AnEntryOfAKnownTypeTakesWhatItsDefinitionSays) {
  const loaded_definitions definitions(entry_types({17}, "3.7"));
  start_version(0, 0);
  const entry_t entry(17, 4);
  EXPECT_EQ(entry.get_entry_id(), 17U);
  EXPECT_EQ(entry.get_log_level(), 4U);
  EXPECT_EQ(entry.get_property_mask(), 0x21U);
  EXPECT_STREQ(entry.get_version_text(), "3.7");
  EXPECT_NE(entry.get_definition(), nullptr);
  EXPECT_EQ(stored_version(), "3,7");
}

TEST(EntryHeader, AnEntryOfAKnownTypeIgnoresTheVersionsOfTypesBelowTen) {
  const loaded_definitions definitions(entry_types({3, 17}, "x.5"));
  start_version(8, 8);
  const entry_t entry(17, 0);
  EXPECT_EQ(stored_version(), "0,5");
}

TEST(EntryHeader, AnUnknownIdIsRefusedByTheConstructor) {
  const loaded_definitions definitions(entry_types({17}));
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(raised<KPX_logging_entry_type_not_found>([] { entry_t(18, 0); }),
            "Entry id argument is invalid");
  EXPECT_THAT(log.lines(),
              ElementsAre("logging/logentry_i:N _kp_LOG_log_entry_imp::_kp_LOG_log_entry_imp, "
                          "invalid entry id:18"));
}

TEST(EntryHeader, TheConstructorAcceptsLevelNineAndRefusesTen) {
  const loaded_definitions definitions(entry_types({17}));
  EXPECT_EQ(entry_t(17, 9).get_log_level(), 9U);
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(raised<KPX_logging_invalid_log_level>([] { entry_t(17, 10); }),
            "log level argument is invalid under Entry ID 17 !");
  EXPECT_THAT(log.lines(),
              ElementsAre("logging/logentry_i:N _kp_LOG_log_entry_imp::_kp_LOG_log_entry_imp, log "
                          "level=10 > LOG_LEVEL_HIGH"));
}

TEST(EntryHeader, AnUnknownIdIsReportedBeforeAWrongLevel) {
  const loaded_definitions definitions(entry_types({17}));
  EXPECT_EQ(raised<KPX_logging_entry_type_not_found>([] { entry_t(18, 10); }),
            "Entry id argument is invalid");
}

// --- ID and level -------------------------------------------------------------------------------

TEST(EntryHeader, LevelNineIsAcceptedAndTenIsRefused) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 2);
  entry.set_log_level(9);
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(raised<KPX_logging_invalid_log_level>([&] { entry.set_log_level(10); }),
            "log level argument is invalid under Entry ID 17 !");
  EXPECT_EQ(entry.get_log_level(), 9U);
  EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N _kp_LOG_log_entry_imp::set_log_level, "
                                       "log level=10 >LOG_LEVEL_HIGHT"));
}

TEST(EntryHeader, TheHighestLevelNumberIsPrintedSigned) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 2);
  const debug_log_in_temp_folder log(1);
  EXPECT_THROW(entry.set_log_level(4294967295U), KPX_logging_invalid_log_level);
  EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N _kp_LOG_log_entry_imp::set_log_level, "
                                       "log level=-1 >LOG_LEVEL_HIGHT"));
}

TEST(EntryHeader, TextsNameTheHighestIdsSigned) {
  const loaded_definitions definitions(entry_types({4294967295U}));
  EXPECT_EQ(raised<KPX_logging_invalid_log_level>([] { entry_t(4294967295U, 10); }),
            "log level argument is invalid under Entry ID -1 !");
}

TEST(EntryHeader, ADetachedEntryTakesALevel) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry;
  entry.set_log_level(7);
  EXPECT_EQ(entry.get_log_level(), 7U);
  EXPECT_EQ(raised<KPX_logging_invalid_log_level>([&] { entry.set_log_level(10); }),
            "log level argument is invalid under Entry ID 0 !");
}

TEST(EntryHeader, SettingTheIdResetsTheLevelAndKeepsTheAttributes) {
  const loaded_definitions definitions(entry_types({17, 18}, "4.1"));
  entry_t entry(17, 5);
  entry.set_severity_code(3);
  entry.set_entry_id(18);
  EXPECT_EQ(entry.get_entry_id(), 18U);
  EXPECT_EQ(entry.get_log_level(), 0U);
  EXPECT_EQ(entry.get_property_mask(), 0x22U);
  EXPECT_STREQ(entry.get_version_text(), "4.1");
  EXPECT_EQ(entry.get_severity_code(), 3);
}

TEST(EntryHeader, AttributesThatTheNewTypeDoesNotDeclareStay) {
  ldf_file file = entry_types({18});
  file.entries.push_back({.id = 17, .attributes = {{"OWN", TypeUInt4}}});
  const loaded_definitions definitions(file);
  entry_t entry(17, 0);
  entry.add_attrib_4u("OWN", 99);
  entry.set_entry_id(18);
  EXPECT_EQ(entry.get_attrib_4u("OWN"), 99U);
  EXPECT_TRUE(entry.remove_attrib("OWN"));
}

TEST(EntryHeader, SettingAnUnknownIdDetachesTheEntryAndKeepsItsId) {
  const loaded_definitions definitions(entry_types({17}, "4.1"));
  entry_t entry(17, 5);
  entry.set_severity_code(3);
  EXPECT_EQ(raised<KPX_logging_entry_type_not_found>([&] { entry.set_entry_id(18); }),
            "Entry id argument is invalid");
  EXPECT_EQ(entry.get_entry_id(), 17U);
  EXPECT_EQ(entry.get_log_level(), 5U);
  EXPECT_EQ(entry.get_property_mask(), 0x21U);
  EXPECT_EQ(entry.get_definition(), nullptr);
  EXPECT_EQ(entry.get_severity_code(), 3);
  EXPECT_EQ(raised<KPX_logging_misc>([&] { entry.get_product_code(); }), not_initialized);
}

TEST(EntryHeader, ADetachedEntryIsAttachedAgainByAKnownId) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 5);
  EXPECT_THROW(entry.set_entry_id(18), KPX_logging_entry_type_not_found);
  entry.set_entry_id(17);
  entry.set_severity_code(3);
  EXPECT_EQ(entry.get_severity_code(), 3);
}

TEST(EntryHeader, SettingAnIdIsTracedAtLevelThree) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  const debug_log_in_temp_folder log(3);
  entry.set_entry_id(17);
  EXPECT_THROW(entry.set_entry_id(4294967295U), KPX_logging_entry_type_not_found);
  const std::vector<std::string> lines = log.lines();
  EXPECT_EQ(lines.front(), "logging/logentry_i:N _kp_LOG_log_entry_imp::set_entry_id :17");
  EXPECT_THAT(lines,
              testing::Contains("logging/logentry_i:N _kp_LOG_log_entry_imp::set_entry_id :-1"));
}

TEST(EntryHeader, SettingAnUnknownIdIsToldAtLevelOne) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  for (int level : {1, 2}) {
    const debug_log_in_temp_folder log(level);
    entry.set_entry_id(17);
    EXPECT_THROW(entry.set_entry_id(4294967295U), KPX_logging_entry_type_not_found);
    EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N _kp_LOG_log_entry_imp::set_entry_id,"
                                         " invalid entry id:-1"));
  }
}

// --- Log version --------------------------------------------------------------------------------

TEST(EntryHeader, MajorVersionsFromTwoToNinetyNineAreKept) {
  const settings_guard settings;
  for (unsigned version : {2U, 99U}) {
    entry_t::set_log_major_version(version);
    EXPECT_EQ(entry_t::log_major_version, version);
  }
}

TEST(EntryHeader, OtherMajorVersionsAreRefused) {
  const settings_guard settings;
  start_version(5, 5);
  for (unsigned version : {0U, 1U, 100U, 4294967295U}) {
    const debug_log_in_temp_folder log(1);
    EXPECT_EQ(
        raised<KPX_logging_illegal_argument>([=] { entry_t::set_log_major_version(version); }),
        "invalid argument:major version should >=2 && <=99");
    EXPECT_THAT(log.lines(),
                ElementsAre("logging/logentry_i:N _kp_LOG_log_entry_imp::set_log_major_version, "
                            "log major version not in valid range"));
  }
  EXPECT_EQ(stored_version(), "5,5");
}

TEST(EntryHeader, MinorVersionsFromZeroTo999AreKept) {
  const settings_guard settings;
  for (unsigned version : {0U, 999U}) {
    entry_t::set_log_minor_version(version);
    EXPECT_EQ(entry_t::log_minor_version, version);
  }
}

TEST(EntryHeader, OtherMinorVersionsAreRefused) {
  const settings_guard settings;
  start_version(5, 5);
  for (unsigned version : {1000U, 4294967295U}) {
    const debug_log_in_temp_folder log(1);
    EXPECT_EQ(
        raised<KPX_logging_illegal_argument>([=] { entry_t::set_log_minor_version(version); }),
        "invalid argument:minor version should >=0 && <=999");
    EXPECT_THAT(log.lines(),
                ElementsAre("logging/logentry_i:N _kp_LOG_log_entry_imp::set_log_minor_version, "
                            "log minor version not in valid range"));
  }
  EXPECT_EQ(stored_version(), "5,5");
}

TEST(EntryHeader, ABadMinorVersionLeavesTheNewMajorInPlace) {
  const settings_guard settings;
  start_version(5, 5);
  EXPECT_THROW(entry_t::set_log_version(6, 1000), KPX_logging_illegal_argument);
  EXPECT_EQ(stored_version(), "6,5");
  EXPECT_THROW(entry_t::set_log_version(1, 7), KPX_logging_illegal_argument);
  EXPECT_EQ(stored_version(), "6,5");
  entry_t::set_log_version(7, 8);
  EXPECT_EQ(stored_version(), "7,8");
}

TEST(EntryHeader, ADefinitionBelowTenDecidesTheVersionThatIsReadBack) {
  const loaded_definitions definitions(entry_types({3}, "3.7"));
  entry_t::set_log_version(5, 1);
  unsigned major = 0;
  unsigned minor = 0;
  entry_t::get_log_version(major, minor);
  EXPECT_EQ(major, 3U);
  EXPECT_EQ(minor, 7U);
  EXPECT_EQ(stored_version(), "3,7");
}

TEST(EntryHeader, WithoutSuchADefinitionTheStoredVersionIsReadBack) {
  const loaded_definitions definitions(entry_types({10}, "3.7"));
  entry_t::set_log_version(5, 1);
  EXPECT_EQ(entry_t::get_log_major_version(), 5U);
  EXPECT_EQ(entry_t::get_log_minor_version(), 1U);
}

TEST(EntryHeader, EachHalfOfTheVersionAsksTheDefinitions) {
  const loaded_definitions definitions(entry_types({0}, "3.7"));
  start_version(5, 1);
  EXPECT_EQ(entry_t::get_log_minor_version(), 7U);
  EXPECT_EQ(entry_t::log_major_version, 3U);
  start_version(5, 1);
  EXPECT_EQ(entry_t::get_log_major_version(), 3U);
  EXPECT_EQ(entry_t::log_minor_version, 7U);
}

struct version_case {
  const char* text;
  const char* result;  // from 90,91
};

TEST(EntryHeader, AnEmptyEntryReadsItsVersionTextAsTwoScannedNumbers) {
  const version_case cases[] = {{"3.7", "3,7"},
                                {"4", "4,91"},
                                {"4.", "4,91"},
                                {"", "90,91"},
                                {"x.5", "90,91"},
                                {"3x.5", "3,91"},
                                {" 3.1", "3,1"},
                                {"3. 1", "3,1"},
                                {"3 .1", "3,91"},
                                {"+3.+1", "3,1"},
                                {"-1.-2", "4294967295,4294967294"},
                                {"\t\n3.1", "3,1"},
                                {"3..1", "3,91"},
                                {"3.1.9", "3,1"},
                                {".5", "90,91"},
                                {"+.5", "90,91"},
                                {"02.010", "2,10"}};
  for (const version_case& c : cases) {
    const loaded_definitions definitions(entry_types({9}, c.text));
    start_version(90, 91);
    const entry_t entry;
    EXPECT_EQ(stored_version(), c.result) << "'" << c.text << "'";
    EXPECT_STREQ(entry.get_version_text(), c.text);
  }
}

TEST(EntryHeader, AnEntryOfAKnownTypeReadsItsVersionTextNumberByNumber) {
  const version_case cases[] = {
      {"3.7", "3,7"},   {"4", "4,91"},    {"4.", "4,0"},      {"", "0,91"},
      {"x.5", "0,5"},   {"3x.5", "3,5"},  {" 3.1", "0,1"},    {"3. 1", "3,0"},
      {"3 .1", "3,1"},  {"+3.+1", "0,0"}, {"-1.-2", "0,0"},   {"3..1", "3,0"},
      {"3.1.9", "3,1"}, {".5", "0,5"},    {"100.5", "100,5"}, {"02.010", "2,10"}};
  for (const version_case& c : cases) {
    const loaded_definitions definitions(entry_types({17}, c.text));
    start_version(90, 91);
    const entry_t entry(17, 0);
    EXPECT_EQ(stored_version(), c.result) << "'" << c.text << "'";
  }
}

TEST(EntryHeader, SettingAnIdLeavesTheProcessWideVersionAlone) {
  const loaded_definitions definitions(entry_types({17}, "3.7"));
  entry_t entry;
  start_version(5, 5);
  entry.set_entry_id(17);
  EXPECT_EQ(stored_version(), "5,5");
}

// --- Built-in fields ----------------------------------------------------------------------------

TEST(EntryHeader, BuiltInFieldsAreReadBackAsTheyWereSet) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  entry.set_product_language_code(4294967295U);
  entry.set_component_code(1);
  entry.set_reason_code_source(2);
  entry.set_reason_code(-3);
  entry.set_computer_info("host");
  entry.set_product_version("1.2");
  EXPECT_EQ(entry.get_product_language_code(), 4294967295U);
  EXPECT_EQ(entry.get_component_code(), 1U);
  EXPECT_EQ(entry.get_reason_code_source(), 2U);
  EXPECT_EQ(entry.get_reason_code(), -3);
  EXPECT_STREQ(entry.get_computer_info(), "host");
  EXPECT_STREQ(entry.get_product_version(), "1.2");
}

TEST(EntryHeader, BuiltInFieldsAreAttributesUnderTheirNames) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  entry.set_severity_code(1);
  entry.set_product_code(2);
  entry.set_product_platform_code(3);
  entry.set_product_language_code(4);
  entry.set_component_code(5);
  entry.set_reason_code_source(6);
  entry.set_reason_code(7);
  const char* const names[] = {"SEVERITY_CODE",
                               "PRODUCT_CODE",
                               "PRODUCT_PLATFORM_CODE",
                               "PRODUCT_LANGUAGE_CODE",
                               "COMPONENT_CODE",
                               "REASON_CODE_SOURCE",
                               "REASON_CODE"};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(entry.get_attrib_as_4(names[i]), i + 1) << names[i];
}

TEST(EntryHeader, CodesAreCutToTheirWidth) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  entry.set_severity_code(0x1FF);
  entry.set_product_code(0x12345);
  entry.set_product_platform_code(0xFFFFFFFF);
  EXPECT_EQ(entry.get_severity_code(), 0xFF);
  EXPECT_EQ(entry.get_product_code(), 0x2345);
  EXPECT_EQ(entry.get_product_platform_code(), 0xFFFF);
}

TEST(EntryHeader, BuiltInFieldsThatAreNotSetAreZero) {
  const loaded_definitions definitions(entry_types({17}));
  const entry_t entry(17, 0);
  EXPECT_EQ(entry.get_severity_code(), 0);
  EXPECT_EQ(entry.get_reason_code(), 0);
  EXPECT_STREQ(entry.get_computer_info(), "");
}

TEST(EntryHeader, AnUndeclaredBuiltInFieldIsRefused) {
  const loaded_definitions definitions({.entries = {{.id = 17}}});
  entry_t entry(17, 0);
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>([&] { entry.set_severity_code(1); }),
            "SEVERITY_CODEis an invalid attibute under Entry ID 17 !");
}

TEST(EntryHeader, ABuiltInFieldDeclaredWithAnotherTypeIsRefused) {
  const loaded_definitions definitions(
      {.entries = {{.id = 17, .attributes = {{"SEVERITY_CODE", TypeUInt4}}}}});
  entry_t entry(17, 0);
  EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>([&] { entry.set_severity_code(1); }),
            "Used the wrong add method under Entry ID 17 !");
}

TEST(EntryHeader, ANullOrEmptyComputerNameIsRefused) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    const debug_log_in_temp_folder log(1);
    EXPECT_EQ(raised<KPX_logging_illegal_argument>([&] { entry.set_computer_info(name); }),
              "invalid argument:computer_info");
    EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N "
                                         "_kp_LOG_log_entry_imp::set_computer_info, "
                                         "computer_info=NULL"));
    EXPECT_EQ(log.raw().back(), '\n');
  }
}

TEST(EntryHeader, ANullOrEmptyProductVersionIsRefusedUnderAnothersName) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  for (const char* text : {static_cast<const char*>(nullptr), ""}) {
    const debug_log_in_temp_folder log(1);
    EXPECT_EQ(raised<KPX_logging_illegal_argument>([&] { entry.set_product_version(text); }),
              "invalid argument:product_version");
    EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N "
                                         "_kp_LOG_log_entry_imp::set_product_language_code, "
                                         "version=NULL"));
    EXPECT_EQ(log.raw().back(), 'L');
  }
}

TEST(EntryHeader, ComputerNamesHaveTheirLineBreaksEscaped) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  entry.set_computer_info("a\nb");
  EXPECT_STREQ(entry.get_computer_info(), "a\\nb");
}

// --- Default information fields -----------------------------------------------------------------

TEST(EntryHeader, DefaultInformationFieldsAreKnownByTheirExactNames) {
  for (const char* name : {"PRODUCT_ID", "COMPONENT_ID", "VERSION_ID", "COMPONENT_VERSION_ID"}) {
    kp_AttributeType type = TypeUnknown;
    EXPECT_TRUE(is_default_info_fields(name, type)) << name;
    EXPECT_EQ(type, TypeMBChar32) << name;
  }
  kp_AttributeType type = TypeUnknown;
  EXPECT_TRUE(is_default_info_fields("TIMESTAMP", type));
  EXPECT_EQ(type, TypeTimestamp);
}

TEST(EntryHeader, OtherNamesAreNoDefaultInformationFields) {
  for (const char* name : {static_cast<const char*>(nullptr), "", "timestamp", "TIMESTAMP ",
                           "SEVERITY_CODE", "PRODUCT_IDX", "PRODUCT_I"}) {
    kp_AttributeType type = TypeGUID;
    EXPECT_FALSE(is_default_info_fields(name, type));
    EXPECT_EQ(type, TypeGUID);
  }
}

// --- Full clear ---------------------------------------------------------------------------------

TEST(EntryHeader, AClearKeepsWhatTheDefinitionSaid) {
  const loaded_definitions definitions(entry_types({17}, "3.7"));
  for (bool full : {false, true}) {
    entry_t entry(17, 5);
    entry.set_severity_code(3);
    entry.set_timestamp(shanghai_summer(), false);
    entry.clear_attribs(full);
    EXPECT_EQ(entry.get_entry_id(), 17U);
    EXPECT_EQ(entry.get_property_mask(), 0x21U);
    EXPECT_STREQ(entry.get_version_text(), "3.7");
    EXPECT_NE(entry.get_definition(), nullptr);
    EXPECT_EQ(entry.get_log_level(), 0U);
    EXPECT_EQ(printed(entry.get_timestamp(true)), "1970-01-01T00:00:00Z");
    EXPECT_FALSE(entry._holds("SEVERITY_CODE"));
    EXPECT_FALSE(entry._holds("TIMEZONE_DIFFERENCE"));
  }
}

TEST(EntryHeader, AClearedEntryCanBeFilledAgain) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 5);
  for (int round = 0; round < 3; ++round) {
    entry.set_severity_code(3);
    entry.set_computer_info("a name that is too long to be kept inside its value");
    entry.clear_attribs(true);
  }
  EXPECT_FALSE(entry._holds("COMPUTER_NAME"));
}

TEST(EntryHeader, TheOperationModeIsLenientAtFirst) {
  EXPECT_EQ(entry_t::global_operation_mode, 2U);
}
