// Setting up entries from variadic lists, and copying them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <memory>

#include "kp_LOG_LogEntry.h"
#include "logging/logentry_i.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"

using entry_t = _kp_LOG_log_entry_imp;
using testing::ElementsAre;
using testing::IsEmpty;

static constexpr const char* end_of_list = nullptr;

static void fill_every_type(entry_t& entry) {
  entry.add_attrib_bool("A1", true);
  entry.add_attrib_1u("A2", 2);
  entry.add_attrib_1("A3", -3);
  entry.add_attrib_2u("A4", 4);
  entry.add_attrib_2("A5", -5);
  entry.add_attrib_4u("A6", 6);
  entry.add_attrib_4("A7", -7);
  entry.add_attrib_float8("A8", 8.5);
  for (int type = 9; type <= 14; ++type)
    entry.add_attrib_str(name_of_type(type).c_str(), std::string(32, 'p').c_str(), true);
  for (int type = 15; type <= 20; ++type)
    entry.add_attrib_mbstr(name_of_type(type).c_str(), std::string(32, 'm').c_str(), true);
  for (int type = 21; type <= 23; ++type)
    entry.add_attrib_time(name_of_type(type).c_str(), kp_Time(2026, 11, type, 1, 2, 3, true));
  entry._add_attribute("A24", new _kp_LOG_datatype<kp_String, TypeGUID>(kp_String("guid")));
}

// The value of one attribute as it is printed; "(none)" when it is not held.
static std::string printed(const entry_t& entry, const std::string& name) {
  unsigned char type = 0;
  const _kp_LOG_type_base* held = entry._get_attribute_internal(name.c_str(), type);
  if (held == nullptr) return "(none)";
  char text[4096] = "";
  return std::to_string(type) + ":" + held->print_out(text);
}

static std::vector<std::string> printed_all(const entry_t& entry) {
  std::vector<std::string> result;
  for (int type = 1; type <= 24; ++type) result.push_back(printed(entry, name_of_type(type)));
  return result;
}

// --- Variadic list ------------------------------------------------------------------------------

TEST(EntryCopy, AListOfNamesAndValuesIsAdded) {
  const loaded_definitions definitions(
      {.entries = {{.id = 17, .attributes = {{"COUNT", TypeUInt4}, {"NAME", TypeChar32}}}}});
  kp_LOG_LogEntry entry;
  entry.SetEntry(17, 3, "COUNT", 5, "NAME", "abc", end_of_list);
  EXPECT_EQ(entry.GetEntryID(), 17U);
  EXPECT_EQ(entry.GetLogLevel(), 3U);
  EXPECT_EQ(entry.GetAttrib4u("COUNT"), 5U);
  EXPECT_STREQ(entry.GetAttribStr("NAME"), "abc");
}

TEST(EntryCopy, AnEmptyNameEndsTheListAsNullDoes) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry;
  entry.SetEntry(17, 3, "A6", 5U, "", "A7", 7, end_of_list);
  EXPECT_EQ(entry.GetAttrib4u("A6"), 5U);
  EXPECT_FALSE(entry._get_imp()._holds("A7"));
  entry.SetEntry(17, 4, end_of_list);
  EXPECT_EQ(entry.GetLogLevel(), 4U);
}

TEST(EntryCopy, EveryTypeIsReadFromTheList) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry;
  entry.SetEntry(17, 0, "A1", true, "A2", UCHAR_MAX, "A3", CHAR_MIN, "A4", USHRT_MAX, "A5",
                 SHRT_MIN, "A6", UINT_MAX, "A7", INT_MIN, "A8", 2.5, "A9", "p9", "A14", "p14",
                 "A15", "m15", "A20", "m20", end_of_list);
  const std::vector<std::string> expected = {"1:1",           "2:255",      "3:-128",
                                             "4:65535",       "5:-32768",   "6:4294967295",
                                             "7:-2147483648", "8:2.500000", "9:p9"};
  const std::vector<std::string> values = printed_all(entry._get_imp());
  EXPECT_EQ(std::vector<std::string>(values.begin(), values.begin() + 9), expected);
  EXPECT_EQ(values[13], "14:p14");
  EXPECT_EQ(values[14], "15:m15");
  EXPECT_EQ(values[19], "20:m20");
}

TEST(EntryCopy, NarrowValuesAreCutBack) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry;
  entry.SetEntry(17, 0, "A2", 0x1FE, "A3", 0x1FE, "A4", 0x1FFFE, "A5", 0x1FFFE, "A1", 2,
                 end_of_list);
  EXPECT_EQ(entry.GetAttrib1u("A2"), 0xFE);
  EXPECT_EQ(entry.GetAttrib1("A3"), -2);
  EXPECT_EQ(entry.GetAttrib2u("A4"), 0xFFFE);
  EXPECT_EQ(entry.GetAttrib2("A5"), -2);
  EXPECT_TRUE(entry.GetAttribBool("A1"));
}

TEST(EntryCopy, TimesAreReadFromText) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry;
  entry.SetEntry(17, 0, "A21", "2026-11-15", "A22", "2026-11-15 17:02:56+08:00", "A23",
                 "2026-11-15T17:02:56Z", end_of_list);
  EXPECT_EQ(entry.GetAttribTime("A21").get_day(), 15);
  EXPECT_EQ(entry.GetAttribTime("A22").compare_time(kp_Time(2026, 11, 15, 9, 2, 56, true)), 0);
  EXPECT_EQ(entry.GetAttribTime("A23").compare_time(kp_Time(2026, 11, 15, 17, 2, 56, true)), 0);
}

TEST(EntryCopy, ATimeThatIsNoTimeIsRefusedAndNotStored) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry;
  for (const char* text : {static_cast<const char*>(nullptr), "", "yesterday"}) {
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&] { entry.SetEntry(17, 3, "A6", 5U, "A23", text, "A7", 7, end_of_list); }),
              "invalid argument");
    EXPECT_FALSE(entry._get_imp()._holds("A23"));
    EXPECT_FALSE(entry._get_imp()._holds("A7"));
    EXPECT_EQ(entry.GetAttrib4u("A6"), 5U);
  }
}

TEST(EntryCopy, AnUndeclaredNameKeepsWhatWasAddedBefore) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry;
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>(
                [&] { entry.SetEntry(17, 3, "A6", 5U, "FOO", 1, "A7", 7, end_of_list); }),
            "FOOis an invalid attibute under Entry ID 17 !");
  EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N "
                                       "_kp_LOG_log_entry_imp::add_attributes, attribute_name is "
                                       "invalid"));
  EXPECT_EQ(entry.GetEntryID(), 17U);
  EXPECT_EQ(entry.GetLogLevel(), 3U);
  EXPECT_EQ(entry.GetAttrib4u("A6"), 5U);
  EXPECT_FALSE(entry._get_imp()._holds("A7"));
}

TEST(EntryCopy, AGuidIsReadAsATextAndRefused) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry;
  EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>(
                [&] { entry.SetEntry(17, 3, "A24", "guid", end_of_list); }),
            "Used the wrong add method.");
}

TEST(EntryCopy, ANameOfNoFamilyIsSkippedWithoutAValue) {
  const loaded_definitions definitions(ldf_with_every_type());
  for (int type : {0, 25}) {
    const std::string name = "X" + std::to_string(type);
    ASSERT_TRUE(entry_t::add_product_specific_attribute_definition(
        17, name.c_str(), static_cast<kp_AttributeType>(type)));
    kp_LOG_LogEntry entry;
    entry.SetEntry(17, 3, name.c_str(), "A6", 5U, end_of_list);
    EXPECT_EQ(entry.GetAttrib4u("A6"), 5U);
    EXPECT_FALSE(entry._get_imp()._holds(name.c_str()));
  }
}

TEST(EntryCopy, ANullTextInTheListIsRefused) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry;
  for (const char* name : {"A9", "A15", "A24"})
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&] { entry.SetEntry(17, 3, name, end_of_list, end_of_list); }),
              "invalid argument");
}

TEST(EntryCopy, ATextTooLongEndsTheList) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry;
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_value>([&] {
              entry.SetEntry(17, 3, "A9", std::string(33, 'x').c_str(), "A7", 7, end_of_list);
            }),
            "A9 Attribute value is overflow under Entry ID 17 !");
  EXPECT_FALSE(entry._get_imp()._holds("A7"));
}

TEST(EntryCopy, TextsOfTheListHaveTheirLineBreaksEscaped) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry;
  entry.SetEntry(17, 3, "A9", "a\nb", "A15", "a\rb", end_of_list);
  EXPECT_STREQ(entry.GetAttribStr("A9"), "a\\nb");
  EXPECT_STREQ(entry.GetAttribMBStr("A15"), "a\\rb");
}

TEST(EntryCopy, SettingUpAUsedEntryKeepsItsAttributes) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 9);
  entry.AddAttrib4u("A6", 5);
  entry.AddAttrib4("A7", 6);
  entry.SetEntry(17, 3, "A7", 7, end_of_list);
  EXPECT_EQ(entry.GetAttrib4u("A6"), 5U);
  EXPECT_EQ(entry.GetAttrib4("A7"), 7);
}

TEST(EntryCopy, AnUnknownIdOrLevelEndsTheSetUp) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 5);
  EXPECT_EQ(
      raised<KPX_logging_invalid_log_level>([&] { entry.SetEntry(17, 10, "A6", 5U, end_of_list); }),
      "log level argument is invalid under Entry ID 17 !");
  EXPECT_EQ(entry.GetLogLevel(), 0U);
  EXPECT_EQ(raised<KPX_logging_entry_type_not_found>(
                [&] { entry.SetEntry(18, 3, "A6", 5U, end_of_list); }),
            "Entry id argument is invalid");
  EXPECT_FALSE(entry._get_imp()._holds("A6"));
}

static void add_list(entry_t* entry, ...) {
  va_list args;
  va_start(args, entry);
  try {
    entry->add_attributes(args);
  } catch (...) {
    va_end(args);
    throw;
  }
  va_end(args);
}

TEST(EntryCopy, AnEntryWithoutADefinitionTakesNoList) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry;
  add_list(&entry, end_of_list);
  EXPECT_EQ(raised<KPX_logging_misc>([&] { add_list(&entry, "A6", 5U, end_of_list); }),
            "_kp_LOG_log_entry_imp::_get_attribute_internal(): entry not initialized");
}

// --- Copying ------------------------------------------------------------------------------------

TEST(EntryCopy, ACopyHoldsEqualValuesOfEveryType) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t source(17, 5);
  fill_every_type(source);
  source.set_timestamp(kp_Time(2026, 11, 15, 17, 2, 56, true), true);
  const entry_t copy(source);
  EXPECT_EQ(printed_all(copy), printed_all(source));
  EXPECT_EQ(copy.get_entry_id(), 17U);
  EXPECT_EQ(copy.get_log_level(), 5U);
  EXPECT_EQ(copy.get_property_mask(), source.get_property_mask());
  EXPECT_STREQ(copy.get_version_text(), source.get_version_text());
  EXPECT_EQ(copy.get_timestamp(true).compare_time(source.get_timestamp(true)), 0);
  EXPECT_EQ(copy.get_definition(), source.get_definition());
}

TEST(EntryCopy, ACopyIsIndependentOfItsSource) {
  const loaded_definitions definitions(ldf_with_every_type());
  auto source = std::make_unique<entry_t>(17, 5);
  fill_every_type(*source);
  const std::vector<std::string> before = printed_all(*source);
  entry_t copy(*source);
  for (int type = 1; type <= 24; ++type) copy.remove_attrib(name_of_type(type).c_str());
  copy.set_log_level(1);
  EXPECT_EQ(printed_all(*source), before);
  EXPECT_EQ(source->get_log_level(), 5U);
  entry_t second(*source);
  source.reset();
  EXPECT_EQ(printed_all(second), before);
}

TEST(EntryCopy, AssignmentReplacesWhatWasThere) {
  ldf_file file = ldf_with_every_type();
  file.entries.push_back({.id = 18, .flags = 2, .attributes = {{"OWN", TypeUInt4}}});
  const loaded_definitions definitions(file);
  entry_t source(17, 5);
  source.add_attrib_4u("A6", 6);
  entry_t target(18, 9);
  target.add_attrib_4u("OWN", 1);
  EXPECT_EQ(&(target = source), &target);
  EXPECT_EQ(target.get_entry_id(), 17U);
  EXPECT_EQ(target.get_log_level(), 5U);
  EXPECT_EQ(target.get_attrib_4u("A6"), 6U);
  EXPECT_FALSE(target._holds("OWN"));
}

TEST(EntryCopy, AnEntryAssignedToItselfIsCleared) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 5);
  fill_every_type(entry);
  const entry_t& itself = entry;
  entry = itself;
  EXPECT_EQ(entry.get_entry_id(), 17U);
  EXPECT_EQ(entry.get_log_level(), 0U);
  EXPECT_EQ(entry.get_timestamp(true).get_year(), 1970);
  for (int type = 1; type <= 24; ++type) EXPECT_FALSE(entry._holds(name_of_type(type).c_str()));
}

TEST(EntryCopy, CopyingDirectlyReplacesTheAttributesAsWell) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t source(17, 5);
  source.add_attrib_4u("A6", 6);
  entry_t target(17, 1);
  fill_every_type(target);
  target._copy(source);
  EXPECT_EQ(target.get_attrib_4u("A6"), 6U);
  EXPECT_FALSE(target._holds("A7"));
}

TEST(EntryCopy, AnEntryCopiedDirectlyOntoItselfKeepsItsTimeAndLosesLevelAndAttributes) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 5);
  fill_every_type(entry);
  const kp_Time time(2026, 11, 15, 17, 2, 56, true);
  entry.set_timestamp(time, true);
  entry._copy(entry);
  EXPECT_EQ(entry.get_entry_id(), 17U);
  EXPECT_EQ(entry.get_log_level(), 0U);
  EXPECT_STREQ(entry.get_version_text(), "2.0");
  EXPECT_EQ(entry.get_timestamp(true).compare_time(time), 0);
  for (int type = 1; type <= 24; ++type) EXPECT_FALSE(entry._holds(name_of_type(type).c_str()));
}

TEST(EntryCopy, AnEntryWithoutADefinitionCannotBeCopied) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t source;
  EXPECT_EQ(raised<KPX_logging_entry_type_not_found>([&] { entry_t copy(source); }),
            "Entry id argument is invalid");
}

TEST(EntryCopy, AFailedAssignmentLeavesAnEmptyStore) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t source;
  entry_t target(17, 5);
  fill_every_type(target);
  EXPECT_THROW(target = source, KPX_logging_entry_type_not_found);
  EXPECT_EQ(target.get_entry_id(), 17U);
  EXPECT_EQ(target.get_definition(), nullptr);
  for (int type = 1; type <= 24; ++type) EXPECT_FALSE(target._holds(name_of_type(type).c_str()));
}

TEST(EntryCopy, AFailedAssignmentLeavesTheStepsBeforeTheFailure) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_Time time(2026, 11, 15, 17, 2, 56);
  time.set_zone_bias(-480);
  time.set_daylight_flag(1);
  entry_t source(17, 5);
  source.set_timestamp(time, true);
  definitions.load({.globals = ldf_builtin_fields(), .entries = {{.id = 18, .flags = 2}}});
  entry_t target(18, 7);
  target.set_severity_code(3);
  EXPECT_EQ(raised<KPX_logging_entry_type_not_found>([&] { target = source; }),
            "Entry id argument is invalid");
  EXPECT_EQ(target.get_entry_id(), 18U);
  EXPECT_EQ(target.get_definition(), nullptr);
  EXPECT_EQ(target.get_property_mask(), 2U);
  EXPECT_EQ(target.get_log_level(), 0U);
  kp_Time zero;
  zero.set_zero();
  EXPECT_EQ(target.get_timestamp(true).compare_time(zero), 0);
  EXPECT_FALSE(target._holds("SEVERITY_CODE"));
  // What the source has written last counts as written here too.
  target.set_entry_id(18);
  target.set_timestamp(time, true);
  EXPECT_FALSE(target._holds("TIMEZONE_DIFFERENCE"));
  EXPECT_FALSE(target._holds("DAYLIGHT_SAVING_ACTIVE"));
}

TEST(EntryCopy, AnEntryWhoseDefinitionIsGoneCannotBeCopied) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t source(17, 5);
  fill_every_type(source);
  kp_LOG_LogConfig::ClearDefinitions();
  EXPECT_THROW(entry_t copy(source), KPX_logging_entry_type_not_found);
  EXPECT_EQ(source.get_attrib_4u("A6"), 6U);
}

TEST(EntryCopy, ACopyTakesAttributesThatItsDefinitionDoesNotDeclare) {
  ldf_file file = ldf_with_every_type();
  file.entries.push_back({.id = 18});
  const loaded_definitions definitions(file);
  entry_t source(17, 5);
  source.add_attrib_4u("A6", 6);
  source.set_entry_id(18);
  const entry_t copy(source);
  EXPECT_EQ(copy.get_attrib_4u("A6"), 6U);
}

TEST(EntryCopy, ACopyRemembersTheZoneThatWasWritten) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_Time time(2026, 11, 15, 17, 2, 56);
  time.set_zone_bias(-480);
  entry_t source(17, 5);
  source.set_timestamp(time, true);
  entry_t copy(source);
  ASSERT_TRUE(copy.remove_attrib("TIMEZONE_DIFFERENCE"));
  copy.set_timestamp(time, true);
  EXPECT_FALSE(copy._holds("TIMEZONE_DIFFERENCE"));
}

TEST(EntryCopy, CopyingScansNoVersion) {
  ldf_file file = ldf_with_every_type();
  file.log_version = "3.7";
  file.entries.push_back({.id = 1});
  const loaded_definitions definitions(file);
  const entry_t source(17, 5);
  entry_t::log_major_version = 50;
  const entry_t copy(source);
  EXPECT_EQ(entry_t::log_major_version, 50U);
}

TEST(EntryCopy, AnyOperationModeIsAccepted) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry::SetOperationMode(7);
  EXPECT_EQ(entry_t::global_operation_mode, 7U);
  EXPECT_EQ(kp_LOG_LogEntry(17, 0).GetAttrib4u("A6"), 0U);
}

// --- The cached message of a copy ---------------------------------------------------------------

// Whether the entry's cache answers for (use_default, index), so that the buffer stays untouched.
static bool answers_from_cache(const entry_t& entry, bool use_default, unsigned index) {
  char buffer[64] = "untouched";
  entry.get_readable_message(buffer, 63, use_default, index);
  return std::string(buffer) == "untouched";
}

TEST(EntryCopy, ACopyHasTheCacheOfARenderedSource) {
  const loaded_definitions definitions(ldf_with_every_type("text"));
  entry_t source(17, 5);
  source.get_readable_message(true, 3);
  EXPECT_TRUE(answers_from_cache(entry_t(source), true, 3));
  EXPECT_FALSE(answers_from_cache(entry_t(source), false, 0));
  source.set_log_level(4);
  EXPECT_FALSE(answers_from_cache(entry_t(source), true, 3));
}

TEST(EntryCopy, EveryChangeMakesTheCacheStale) {
  const loaded_definitions definitions(ldf_with_every_type("text"));
  const std::function<void(entry_t&)> changes[] = {
      [](entry_t& e) { e.set_entry_id(17); },
      [](entry_t& e) { e.set_log_level(1); },
      [](entry_t& e) { e.set_timestamp(kp_Time(), false); },
      [](entry_t& e) { e.add_attrib_4u("A6", 1); },
      [](entry_t& e) { e.add_attrib_4u("A6", 1); },
      [](entry_t& e) { e.add_attrib_str("A9", "", true); },
      [](entry_t& e) { e.remove_attrib("A6"); },
      [](entry_t& e) { e._add_attribute("A6", new _kp_LOG_datatype<unsigned, TypeUInt4>(2)); },
      [](entry_t& e) { e._clear_attribute_list(); },
      [](entry_t& e) { e.clear_attribs(false); }};
  entry_t entry(17, 5);
  for (const auto& change : changes) {
    entry.get_readable_message(true, 0);
    EXPECT_TRUE(answers_from_cache(entry, true, 0));
    change(entry);
    EXPECT_FALSE(answers_from_cache(entry, true, 0));
  }
}

TEST(EntryCopy, ATimestampThatIsRefusedHalfWayMakesTheCacheStale) {
  const loaded_definitions definitions({.entries = {{.id = 17, .msg_text = "text"}}});
  entry_t entry(17, 5);
  entry.get_readable_message(true, 0);
  EXPECT_TRUE(answers_from_cache(entry, true, 0));
  EXPECT_THROW(entry.set_timestamp(kp_Time(), false), KPX_logging_invalid_attribute_name);
  EXPECT_FALSE(answers_from_cache(entry, true, 0));
}

TEST(EntryCopy, ReadingChangesNothing) {
  const loaded_definitions definitions(ldf_with_every_type("text"));
  entry_t entry(17, 5);
  entry.get_readable_message(true, 0);
  kp_AttributeType type = TypeUnknown;
  entry.get_attrib_4u("A6");
  entry.check_attribute("A6", type);
  entry.get_timestamp(true);
  EXPECT_FALSE(entry.remove_attrib("A6"));
  EXPECT_THROW(entry.add_attrib_4u("FOO", 1), KPX_logging_invalid_attribute_name);
  EXPECT_TRUE(answers_from_cache(entry, true, 0));
}
