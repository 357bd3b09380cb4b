// The attribute store: typed adds and gets, checks, removal, queries and run-time declarations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <map>

#include "logging/logentry_i.h"
#include "tests/support/entry_header.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/long_text.h"
#include "tests/support/raised.h"

using entry_t = _kp_LOG_log_entry_imp;
using testing::ElementsAre;
using testing::IsEmpty;

static const char wrong_add[] = "Used the wrong add method under Entry ID 17 !";
static const char wrong_add_of_time[] = "Use the wrong add method under Entry ID 17 !";
static const char wrong_get[] = "Use the wrong get method under Entry ID 17 !";
static const char foo_undeclared[] = "FOOis an invalid attibute under Entry ID 17 !";

// Every typed add, by the name of the operation; the value does not matter.
using add_operation = std::function<void(entry_t&, const char*)>;

static const std::map<std::string, add_operation>& numeric_adds() {
  static const std::map<std::string, add_operation> adds = {
      {"bool", [](entry_t& e, const char* n) { e.add_attrib_bool(n, true); }},
      {"1u", [](entry_t& e, const char* n) { e.add_attrib_1u(n, 1); }},
      {"1", [](entry_t& e, const char* n) { e.add_attrib_1(n, 1); }},
      {"2u", [](entry_t& e, const char* n) { e.add_attrib_2u(n, 1); }},
      {"2", [](entry_t& e, const char* n) { e.add_attrib_2(n, 1); }},
      {"4u", [](entry_t& e, const char* n) { e.add_attrib_4u(n, 1); }},
      {"4", [](entry_t& e, const char* n) { e.add_attrib_4(n, 1); }},
      {"float8", [](entry_t& e, const char* n) { e.add_attrib_float8(n, 1); }}};
  return adds;
}

static std::map<std::string, add_operation> all_adds() {
  std::map<std::string, add_operation> adds = numeric_adds();
  adds["time"] = [](entry_t& e, const char* n) { e.add_attrib_time(n, kp_Time()); };
  adds["str"] = [](entry_t& e, const char* n) { e.add_attrib_str(n, "x", true); };
  adds["mbstr"] = [](entry_t& e, const char* n) { e.add_attrib_mbstr(n, "x", true); };
  return adds;
}

// Every getter in both forms. The second of each pair tells whether the attribute was found.
struct get_operation {
  std::function<void(const entry_t&, const char*)> value;
  std::function<bool(const entry_t&, const char*)> found;
};

template <class T>
static std::function<bool(const entry_t&, const char*)> finder(bool (entry_t::*get)(const char*, T&)
                                                                   const) {
  return [get](const entry_t& e, const char* name) {
    T out{};
    return (e.*get)(name, out);
  };
}

static const std::map<std::string, get_operation>& all_gets() {
  static const std::map<std::string, get_operation> gets = {
      {"bool",
       {[](const entry_t& e, const char* n) { e.get_attrib_bool(n); },
        finder<bool>(&entry_t::get_attrib_bool)}},
      {"1u",
       {[](const entry_t& e, const char* n) { e.get_attrib_1u(n); },
        finder<unsigned char>(&entry_t::get_attrib_1u)}},
      {"1",
       {[](const entry_t& e, const char* n) { e.get_attrib_1(n); },
        finder<char>(&entry_t::get_attrib_1)}},
      {"2u",
       {[](const entry_t& e, const char* n) { e.get_attrib_2u(n); },
        finder<unsigned short>(&entry_t::get_attrib_2u)}},
      {"2",
       {[](const entry_t& e, const char* n) { e.get_attrib_2(n); },
        finder<short>(&entry_t::get_attrib_2)}},
      {"4u",
       {[](const entry_t& e, const char* n) { e.get_attrib_4u(n); },
        finder<unsigned>(&entry_t::get_attrib_4u)}},
      {"4",
       {[](const entry_t& e, const char* n) { e.get_attrib_4(n); },
        finder<int>(&entry_t::get_attrib_4)}},
      {"float8",
       {[](const entry_t& e, const char* n) { e.get_attrib_float8(n); },
        finder<double>(&entry_t::get_attrib_float8)}},
      {"str",
       {[](const entry_t& e, const char* n) { e.get_attrib_str(n); },
        finder<const char*>(&entry_t::get_attrib_str)}},
      {"mbstr",
       {[](const entry_t& e, const char* n) { e.get_attrib_mbstr(n); },
        finder<const char*>(&entry_t::get_attrib_mbstr)}},
      {"time",
       {[](const entry_t& e, const char* n) { e.get_attrib_time(n); },
        finder<kp_Time>(&entry_t::get_attrib_time)}}};
  return gets;
}

// The operation that fits a type code; "" for TypeGUID, which none fits.
static std::string operation_for(int type) {
  static const char* const numeric[] = {"bool", "1u", "1", "2u", "2", "4u", "4", "float8"};
  if (type <= 8) return numeric[type - 1];
  if (type <= 14) return "str";
  if (type <= 20) return "mbstr";
  return type <= 23 ? "time" : "";
}

// --- Adding and reading -------------------------------------------------------------------------

TEST(EntryStore, NumbersAreReadBackAtTheirLimits) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_bool("A1", true);
  entry.add_attrib_1u("A2", UCHAR_MAX);
  entry.add_attrib_1("A3", CHAR_MIN);
  entry.add_attrib_2u("A4", USHRT_MAX);
  entry.add_attrib_2("A5", SHRT_MIN);
  entry.add_attrib_4u("A6", UINT_MAX);
  entry.add_attrib_4("A7", INT_MIN);
  entry.add_attrib_float8("A8", -DBL_MAX);
  EXPECT_TRUE(entry.get_attrib_bool("A1"));
  EXPECT_EQ(entry.get_attrib_1u("A2"), UCHAR_MAX);
  EXPECT_EQ(entry.get_attrib_1("A3"), CHAR_MIN);
  EXPECT_EQ(entry.get_attrib_2u("A4"), USHRT_MAX);
  EXPECT_EQ(entry.get_attrib_2("A5"), SHRT_MIN);
  EXPECT_EQ(entry.get_attrib_4u("A6"), UINT_MAX);
  EXPECT_EQ(entry.get_attrib_4("A7"), INT_MIN);
  EXPECT_EQ(entry.get_attrib_float8("A8"), -DBL_MAX);
}

TEST(EntryStore, ADoubleMayBeNoNumber) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_float8("A8", std::nan(""));
  EXPECT_TRUE(std::isnan(entry.get_attrib_float8("A8")));
}

TEST(EntryStore, EveryOperationFitsExactlyItsTypes) {
  const loaded_definitions definitions(ldf_with_every_type());
  for (const auto& [operation, add] : all_adds()) {
    for (int type = 1; type <= 24; ++type) {
      entry_t entry(17, 0);
      kp_AttributeType stored = TypeUnknown;
      if (operation == operation_for(type)) {
        add(entry, name_of_type(type).c_str());
        EXPECT_EQ(entry.check_attribute(name_of_type(type).c_str(), stored), 0);
      } else {
        EXPECT_THROW(add(entry, name_of_type(type).c_str()), KPX_logging_attribute_type_mismatch);
        EXPECT_EQ(entry.check_attribute(name_of_type(type).c_str(), stored), 1);
      }
      EXPECT_EQ(stored, type) << operation;
    }
  }
}

TEST(EntryStore, EveryGetterFitsExactlyItsTypes) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  const auto adds = all_adds();
  for (int type = 1; type <= 23; ++type)
    adds.at(operation_for(type))(entry, name_of_type(type).c_str());
  for (const auto& [operation, get] : all_gets()) {
    for (int type = 1; type <= 23; ++type) {
      const std::string name = name_of_type(type);
      if (operation == operation_for(type)) {
        EXPECT_TRUE(get.found(entry, name.c_str())) << operation;
      } else {
        EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>(
                      [&, &get = get] { get.value(entry, name.c_str()); }),
                  wrong_get);
        EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>(
                      [&, &get = get] { get.found(entry, name.c_str()); }),
                  wrong_get);
      }
    }
  }
}

TEST(EntryStore, AddingTwiceKeepsOneAttributeWithTheSecondValue) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_4u("A6", 1);
  entry.add_attrib_4u("A6", 2);
  EXPECT_EQ(entry.get_attrib_4u("A6"), 2U);
  EXPECT_TRUE(entry.remove_attrib("A6"));
  EXPECT_FALSE(entry.remove_attrib("A6"));
}

TEST(EntryStore, ReplacingAValueKeepsItsObject) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  unsigned char type = 0;
  entry.add_attrib_str("A14", "short", true);
  const _kp_LOG_type_base* before = entry._get_attribute_internal("A14", type);
  entry.add_attrib_str("A14", std::string(2048, 'x').c_str(), true);
  EXPECT_EQ(entry._get_attribute_internal("A14", type), before);
}

TEST(EntryStore, NamesAreComparedExactly) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  EXPECT_THROW(entry.add_attrib_4u("a6", 1), KPX_logging_invalid_attribute_name);
  EXPECT_THROW(entry.add_attrib_4u("A6 ", 1), KPX_logging_invalid_attribute_name);
}

TEST(EntryStore, AHundredAttributesAreFoundUnderTheirNames) {
  ldf_entry type{.id = 17};
  const auto name = [](unsigned i) {
    return "ATTRIBUTE_WITH_A_LONG_NAME_" + std::to_string(i * 7919);
  };
  for (unsigned i = 0; i < 100; ++i) type.attributes.push_back({name(i), TypeUInt4});
  const loaded_definitions definitions({.entries = {type}});
  entry_t entry(17, 0);
  for (unsigned i = 0; i < 100; ++i) entry.add_attrib_4u(name(i).c_str(), i);
  for (unsigned i = 0; i < 100; i += 2) EXPECT_TRUE(entry.remove_attrib(name(i).c_str()));
  for (unsigned i = 0; i < 100; ++i)
    EXPECT_EQ(entry.get_attrib_4u(name(i).c_str()), i % 2 == 0 ? 0 : i);
}

TEST(EntryStore, TheEntrysOwnDeclarationComesBeforeTheGlobalOne) {
  const loaded_definitions definitions(
      {.globals = {{"X", TypeUInt4}},
       .entries = {{.id = 17, .attributes = {{"X", TypeFloat}}}, {.id = 18}}});
  entry_t own(17, 0);
  entry_t global(18, 0);
  own.add_attrib_float8("X", 1.5);
  global.add_attrib_4u("X", 15);
  EXPECT_THROW(own.add_attrib_4u("X", 15), KPX_logging_attribute_type_mismatch);
  EXPECT_EQ(own.get_attrib_float8("X"), 1.5);
  EXPECT_EQ(global.get_attrib_4u("X"), 15U);
}

// --- Refused adds -------------------------------------------------------------------------------

TEST(EntryStore, ANullOrEmptyNameIsRefusedByEveryAdd) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  for (const auto& [operation, add] : all_adds())
    for (const char* name : {static_cast<const char*>(nullptr), ""})
      EXPECT_EQ(raised<KPX_logging_illegal_argument>([&, &add = add] { add(entry, name); }),
                "invalid argument")
          << operation;
}

TEST(EntryStore, ANumericAddWritesNoLineForANullName) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  const debug_log_in_temp_folder log(1);
  for (const auto& [operation, add] : numeric_adds())
    EXPECT_THROW(add(entry, nullptr), KPX_logging_illegal_argument);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(EntryStore, AnUndeclaredNameIsRefusedByEveryNumericAdd) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  for (const auto& [operation, add] : numeric_adds()) {
    const debug_log_in_temp_folder log(1);
    EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>([&, &add = add] { add(entry, "FOO"); }),
              foo_undeclared);
    EXPECT_THAT(log.lines(),
                ElementsAre("logging/logentry_i:N _kp_LOG_log_entry_imp::_check_attribute, FOO is "
                            "an invalid attribute under Entry ID"));
  }
}

TEST(EntryStore, ANameDeclaredWithAnotherTypeIsRefusedByEveryNumericAdd) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  for (const auto& [operation, add] : numeric_adds()) {
    const debug_log_in_temp_folder log(1);
    EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>([&, &add = add] { add(entry, "A9"); }),
              wrong_add);
    EXPECT_THAT(log.lines(),
                ElementsAre("logging/logentry_i:N _kp_LOG_log_entry_imp::_check_attribute, "
                            "attribute type is not sample as provide"));
  }
}

TEST(EntryStore, SeverityOfTheWrongWidthIsRefused) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  EXPECT_EQ(
      raised<KPX_logging_attribute_type_mismatch>([&] { entry.add_attrib_4u("SEVERITY_CODE", 1); }),
      wrong_add);
}

TEST(EntryStore, ARefusedAddLeavesTheHeldValue) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_4u("A6", 1);
  EXPECT_THROW(entry.add_attrib_4("A6", 2), KPX_logging_attribute_type_mismatch);
  EXPECT_EQ(entry.get_attrib_4u("A6"), 1U);
}

TEST(EntryStore, NamesWithFormatCharactersAreOnlyText) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>([&] { entry.add_attrib_4("%s%n", 2); }),
            "%s%nis an invalid attibute under Entry ID 17 !");
  EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N _kp_LOG_log_entry_imp::"
                                       "_check_attribute, %s%n is an invalid attribute under "
                                       "Entry ID"));
}

TEST(EntryStore, AnEntryWithoutADefinitionTakesNoAttribute) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry;
  const debug_log_in_temp_folder log(1);
  for (const auto& [operation, add] : all_adds())
    EXPECT_EQ(raised<KPX_logging_misc>([&, &add = add] { add(entry, "SEVERITY_CODE"); }),
              not_initialized)
        << operation;
  EXPECT_EQ(raised<KPX_logging_misc>([&] { entry._check_attribute("A1", TypeBool); }),
            not_initialized);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(EntryStore, CheckingSaysWhatIsWrongInTheLog) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry(17, 0);
  entry._check_attribute("A6", TypeUInt4);
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    const debug_log_in_temp_folder log(1);
    EXPECT_EQ(raised<KPX_logging_illegal_argument>([&] { entry._check_attribute(name, TypeBool); }),
              "invalid argument");
    EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N "
                                         "_kp_LOG_log_entry_imp::_check_attribute, name==NULL"));
  }
}

// A length cut to 32 bits would be that of the declared name.
TEST(EntryStore, ANameOfFourGibibytesIsNotTheDeclaredOneThatItBeginsWith) {
  ldf_file file = ldf_with_every_type();
  file.entries.front().attributes.push_back({"A6A6", TypeUInt4});
  const loaded_definitions definitions(file);
  entry_t entry(17, 0);
  entry.add_attrib_4u("A6A6", 1);
  const long_text name("A6A6", (size_t{1} << 32) + 4);
  kp_AttributeType type = TypeBool;
  EXPECT_EQ(entry.check_attribute(name.c_str(), type), -1);
  EXPECT_EQ(type, TypeUnknown);
}

TEST(EntryStore, CheckingComparesTypesAsTheyAre) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry(17, 0);
  for (int type : {-250, 0, 25, 262}) {
    EXPECT_THROW(entry._check_attribute("A6", static_cast<kp_AttributeType>(type)),
                 KPX_logging_attribute_type_mismatch);
  }
}

// --- Times --------------------------------------------------------------------------------------

TEST(EntryStore, OneAddServesDatesTimesAndTimestamps) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  for (const char* name : {"A21", "A22", "A23"}) {
    entry.add_attrib_time(name, some_time());
    EXPECT_EQ(entry.get_attrib_time(name).compare_time(some_time()), 0);
  }
}

TEST(EntryStore, RefusedTimesWriteNoLine) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>(
                [&] { entry.add_attrib_time("A9", some_time()); }),
            wrong_add_of_time);
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>(
                [&] { entry.add_attrib_time("FOO", some_time()); }),
            foo_undeclared);
  EXPECT_THROW(entry.add_attrib_time("", some_time()), KPX_logging_illegal_argument);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(EntryStore, TimestampAnswersWithTheEntrysOwnAsStored) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.set_timestamp(some_time(), true);
  kp_Time read;
  EXPECT_TRUE(entry.get_attrib_time("TIMESTAMP", read));
  EXPECT_TRUE(read.is_GMT_time_mode());
  EXPECT_EQ(read.get_hour(), 17);
  EXPECT_EQ(entry.get_attrib_time("TIMESTAMP").compare_time(some_time()), 0);
}

TEST(EntryStore, TimestampIsFoundWithoutADefinitionAndInStrictMode) {
  const settings_guard settings;
  entry_t::global_operation_mode = 1;
  const entry_t entry;
  kp_Time read;
  EXPECT_TRUE(entry.get_attrib_time("TIMESTAMP", read));
  EXPECT_EQ(entry.get_attrib_time("TIMESTAMP").compare_time(read), 0);
}

TEST(EntryStore, AnUnsetAttributeOfAnyTypeIsNoTimeButNoError) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  kp_Time read = some_time();
  for (int type = 1; type <= 24; ++type)
    EXPECT_FALSE(entry.get_attrib_time(name_of_type(type).c_str(), read)) << type;
  EXPECT_EQ(read.compare_time(some_time()), 0);
  entry.add_attrib_4("A7", 1);
  EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>([&] { entry.get_attrib_time("A7", read); }),
            wrong_get);
}

// --- Getters ------------------------------------------------------------------------------------

TEST(EntryStore, ANullOrEmptyNameIsRefusedByEveryGetter) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry(17, 0);
  for (const auto& [operation, get] : all_gets()) {
    for (const char* name : {static_cast<const char*>(nullptr), ""}) {
      EXPECT_EQ(raised<KPX_logging_illegal_argument>([&, &get = get] { get.value(entry, name); }),
                "invalid argument");
      EXPECT_EQ(raised<KPX_logging_illegal_argument>([&, &get = get] { get.found(entry, name); }),
                "invalid argument");
    }
  }
}

TEST(EntryStore, AnUndeclaredNameIsRefusedByEveryGetter) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry(17, 0);
  for (const auto& [operation, get] : all_gets()) {
    EXPECT_EQ(
        raised<KPX_logging_invalid_attribute_name>([&, &get = get] { get.value(entry, "FOO"); }),
        foo_undeclared);
    EXPECT_EQ(
        raised<KPX_logging_invalid_attribute_name>([&, &get = get] { get.found(entry, "FOO"); }),
        foo_undeclared);
  }
}

TEST(EntryStore, WithoutADefinitionEveryGetterSaysSo) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry;
  for (const auto& [operation, get] : all_gets()) {
    EXPECT_EQ(raised<KPX_logging_misc>([&, &get = get] { get.value(entry, "A1"); }),
              not_initialized);
    EXPECT_EQ(raised<KPX_logging_misc>([&, &get = get] { get.found(entry, "A1"); }),
              not_initialized);
  }
}

TEST(EntryStore, AnUnsetAttributeIsASoftMiss) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry(17, 0);
  unsigned value = 77;
  EXPECT_FALSE(entry.get_attrib_4u("A6", value));
  EXPECT_EQ(value, 77U);
  EXPECT_EQ(entry.get_attrib_4u("A6"), 0U);
  EXPECT_FALSE(entry.get_attrib_bool("A1"));
  EXPECT_EQ(entry.get_attrib_float8("A8"), 0.0);
  EXPECT_STREQ(entry.get_attrib_str("A9"), "");
  EXPECT_STREQ(entry.get_attrib_mbstr("A15"), "");
}

TEST(EntryStore, AnUnsetTimeIsTheCurrentTime) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry(17, 0);
  const kp_Time before;
  const kp_Time read = entry.get_attrib_time("A21");
  EXPECT_LE(before.compare_time(read), 0);
  EXPECT_GE(kp_Time().compare_time(read), 0);
}

TEST(EntryStore, InStrictModeAValueGetterRefusesAnUnsetAttribute) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry(17, 0);
  entry_t::global_operation_mode = 1;
  for (int type = 1; type <= 23; ++type) {
    const std::string name = name_of_type(type);
    const get_operation& get = all_gets().at(operation_for(type));
    EXPECT_FALSE(get.found(entry, name.c_str()));
    EXPECT_EQ(raised<KPX_logging_attribute_not_found>(
                  [&, &get = get] { get.value(entry, name.c_str()); }),
              "<KPX_logging_attribute_not_found> Attribute " + name + " cannot be located.");
  }
}

TEST(EntryStore, OnlyModeOneIsStrict) {
  const settings_guard settings;
  for (unsigned mode : {0U, 2U, 3U, 4294967295U}) {
    entry_t::global_operation_mode = mode;
    EXPECT_NO_THROW(entry_t::_throw_on_missing_attribute("A6"));
  }
}

TEST(EntryStore, AGuidIsReadByNoGetter) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry._add_attribute("A24", new _kp_LOG_datatype<kp_String, TypeGUID>(kp_String("guid")));
  for (const auto& [operation, get] : all_gets())
    EXPECT_EQ(
        raised<KPX_logging_attribute_type_mismatch>([&, &get = get] { get.found(entry, "A24"); }),
        wrong_get);
}

// --- Integers of any width ----------------------------------------------------------------------

TEST(EntryStore, IntegersAreWidenedByTheirSign) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_1u("A2", 255);
  entry.add_attrib_1("A3", -1);
  entry.add_attrib_2u("A4", 65535);
  entry.add_attrib_2("A5", -2);
  entry.add_attrib_4u("A6", 4294967295U);
  entry.add_attrib_4("A7", -3);
  EXPECT_EQ(entry.get_attrib_as_4("A2"), 255);
  EXPECT_EQ(entry.get_attrib_as_4("A3"), -1);
  EXPECT_EQ(entry.get_attrib_as_4("A4"), 65535);
  EXPECT_EQ(entry.get_attrib_as_4("A5"), -2);
  EXPECT_EQ(entry.get_attrib_as_4("A6"), -1);
  EXPECT_EQ(entry.get_attrib_as_4("A7"), -3);
}

TEST(EntryStore, ABoolIsTheIntegerZero) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry_t::global_operation_mode = 1;
  EXPECT_EQ(entry.get_attrib_as_4("A1"), 0);
  entry.add_attrib_bool("A1", true);
  EXPECT_EQ(entry.get_attrib_as_4("A1"), 0);
}

TEST(EntryStore, OtherTypesAreNoIntegers) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry(17, 0);
  for (int type = 8; type <= 24; ++type)
    EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>(
                  [&] { entry.get_attrib_as_4(name_of_type(type).c_str()); }),
              wrong_get);
}

TEST(EntryStore, AnUnsetIntegerFollowsTheOperationMode) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry(17, 0);
  for (int type = 2; type <= 7; ++type) {
    const std::string name = name_of_type(type);
    entry_t::global_operation_mode = 2;
    EXPECT_EQ(entry.get_attrib_as_4(name.c_str()), 0);
    entry_t::global_operation_mode = 1;
    EXPECT_EQ(raised<KPX_logging_attribute_not_found>([&] { entry.get_attrib_as_4(name.c_str()); }),
              "<KPX_logging_attribute_not_found> Attribute " + name + " cannot be located.");
  }
}

TEST(EntryStore, ANullOrEmptyNameIsNoInteger) {
  const loaded_definitions definitions(ldf_with_every_type());
  const entry_t entry(17, 0);
  for (const char* name : {static_cast<const char*>(nullptr), ""})
    EXPECT_EQ(raised<KPX_logging_illegal_argument>([&] { entry.get_attrib_as_4(name); }),
              "invalid argument");
}

// --- Values of every type, and of none ----------------------------------------------------------

TEST(EntryStore, ClearingTheListDropsEveryAttributeAndNothingElse) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 4);
  const auto adds = all_adds();
  for (int type = 1; type <= 23; ++type)
    adds.at(operation_for(type))(entry, name_of_type(type).c_str());
  entry._clear_attribute_list();
  for (int type = 1; type <= 23; ++type) EXPECT_FALSE(entry._holds(name_of_type(type).c_str()));
  EXPECT_EQ(entry.get_log_level(), 4U);
}

TEST(EntryStore, ADeclaredTypeOfNoValueTakesNone) {
  const loaded_definitions definitions(ldf_with_every_type());
  for (int type : {0, 25}) {
    const std::string name = "X" + std::to_string(type);
    ASSERT_TRUE(entry_t::add_product_specific_attribute_definition(
        17, name.c_str(), static_cast<kp_AttributeType>(type)));
    entry_t entry(17, 0);
    for (const auto& [operation, add] : all_adds())
      EXPECT_THROW(add(entry, name.c_str()), KPX_logging_attribute_type_mismatch) << operation;
  }
}
