// The public handle: every operation, what it returns, and the conversion of code pages.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "kp_LOG_LogEntry.h"
#include "logging/logentry_i.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"

// --- Life ---------------------------------------------------------------------------------------

TEST(EntryHandle, AnEmptyHandleHasAnEmptyEntry) {
  const loaded_definitions definitions(ldf_with_every_type());
  const kp_LOG_LogEntry entry;
  EXPECT_EQ(entry.GetEntryID(), 0U);
  EXPECT_EQ(entry.GetLogLevel(), 0U);
  EXPECT_EQ(entry.GetPropertyMask(), 0U);
}

TEST(EntryHandle, AHandleOfAKnownTypeHasItsIdLevelAndMask) {
  const loaded_definitions definitions(ldf_with_every_type());
  const kp_LOG_LogEntry entry(17, 9);
  EXPECT_EQ(entry.GetEntryID(), 17U);
  EXPECT_EQ(entry.GetLogLevel(), 9U);
  EXPECT_EQ(entry.GetPropertyMask(), 1U);
}

TEST(EntryHandle, AnUnknownIdOrLevelLeavesNoHandle) {
  const loaded_definitions definitions(ldf_with_every_type());
  EXPECT_EQ(raised<KPX_logging_entry_type_not_found>([] { kp_LOG_LogEntry(18, 0); }),
            "Entry id argument is invalid");
  EXPECT_EQ(raised<KPX_logging_invalid_log_level>([] { kp_LOG_LogEntry(17, 10); }),
            "log level argument is invalid under Entry ID 17 !");
}

TEST(EntryHandle, ACopyIsEqualAndIndependent) {
  const loaded_definitions definitions({.entries = {{.id = 5, .attributes = {{"X", TypeUInt4}}}}});
  kp_LOG_LogEntry source(5, 3);
  source.AddAttrib4u("X", 1);
  kp_LOG_LogEntry copy(source);
  EXPECT_EQ(copy.GetEntryID(), 5U);
  EXPECT_EQ(copy.GetAttrib4u("X"), 1U);
  copy.AddAttrib4u("X", 2);
  EXPECT_EQ(source.GetAttrib4u("X"), 1U);
  source.RemoveAttrib("X");
  EXPECT_EQ(copy.GetAttrib4u("X"), 2U);
}

TEST(EntryHandle, MovingHandsTheEntryOver) {
  static_assert(std::is_nothrow_move_constructible_v<kp_LOG_LogEntry>);
  static_assert(std::is_nothrow_move_assignable_v<kp_LOG_LogEntry>);
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry source(17, 3);
  source.AddAttribStr("A9", "text");
  const char* const text = source.GetAttribStr("A9");
  kp_LOG_LogEntry moved(std::move(source));
  EXPECT_EQ(moved.GetAttribStr("A9"), text);
  kp_LOG_LogEntry assigned(17, 0);
  assigned = std::move(moved);
  EXPECT_EQ(assigned.GetLogLevel(), 3U);
  EXPECT_EQ(assigned.GetAttribStr("A9"), text);
}

TEST(EntryHandle, MovedToItselfStaysAsItIs) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 3);
  entry.AddAttrib4u("A6", 1);
  kp_LOG_LogEntry& same = entry;
  entry = std::move(same);
  EXPECT_EQ(entry.GetLogLevel(), 3U);
  EXPECT_EQ(entry.GetAttrib4u("A6"), 1U);
}

TEST(EntryHandle, OneThatWasMovedFromMayBeAssignedTo) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry first(17, 3);
  kp_LOG_LogEntry second(std::move(first));
  first = second;  // NOLINT(bugprone-use-after-move): what may be done with it is the subject
  EXPECT_EQ(first.GetLogLevel(), 3U);
  EXPECT_EQ(second.GetLogLevel(), 3U);
  kp_LOG_LogEntry third(std::move(first));
  first = std::move(second);
  EXPECT_EQ(first.GetLogLevel(), 3U);
}

TEST(EntryHandle, OneThatWasMovedFromMayBeAssignedToAgainWhenThatFailed) {
  kp_LOG_LogEntry moved_from;
  const kp_LOG_LogEntry other(std::move(moved_from));
  EXPECT_THROW(moved_from = other, KPX_logging_entry_type_not_found);  // NOLINT: the subject
  const loaded_definitions definitions(ldf_with_every_type());
  moved_from = kp_LOG_LogEntry(17, 3);
  EXPECT_EQ(moved_from.GetLogLevel(), 3U);
}

// Wherever a definition is first asked for.
TEST(EntryHandle, ADamagedDefinitionIsToldByWhateverAsksForIt) {
  const temp_folder folder;
  const loaded_definitions definitions({.entries = {{.id = 5}, {.id = 17}}});
  const kp_LOG_LogEntry source(17, 0);
  kp_LOG_LogEntry attached(17, 0);
  std::string damaged =
      ldf_file{.entries = {{.id = 6}, {.id = 18}}}.bytes();  // its mapping records say 5 and 17
  damaged.replace(128, 4, ldf_int4(5)).replace(136, 4, ldf_int4(17));
  kp_LOG_LogConfig::SetDefinitionPath(folder.write("damaged", damaged).c_str());
  unsigned major = 0, minor = 0;
  const std::function<void()> operations[] = {
      [] { kp_LOG_LogEntry(); },
      [] { kp_LOG_LogEntry(17, 0); },
      [&] { kp_LOG_LogEntry copy(source); },
      [&] { attached.SetEntryID(17); },
      [&] { attached.SetEntry(17, 0, nullptr); },
      [] { kp_LOG_LogEntry::GetLogMajorVersion(); },
      [] { kp_LOG_LogEntry::GetLogMinorVersion(); },
      [&] { kp_LOG_LogEntry::GetLogVersion(major, minor); },
      [] { kp_LOG_LogEntry::AddAttributeDefinition(17, "X", TypeUInt4); },
  };
  for (const std::function<void()>& operation : operations)
    EXPECT_EQ(raised<KPX_logging_invalid_definition>(operation),
              "<KPX_logging_invalid_definition> The definition file is corrupted.");
}

TEST(EntryHandle, CopyingAnEmptyHandleIsRefused) {
  const loaded_definitions definitions(ldf_with_every_type());
  const kp_LOG_LogEntry source;
  EXPECT_EQ(raised<KPX_logging_entry_type_not_found>([&] { kp_LOG_LogEntry copy(source); }),
            "Entry id argument is invalid");
}

TEST(EntryHandle, CopyingAHandleScansTheVersionThatAssigningLeavesAlone) {
  ldf_file file = ldf_with_every_type();
  file.log_version = "3.7";
  file.entries.push_back({.id = 1});
  const loaded_definitions definitions(file);
  const kp_LOG_LogEntry source(17, 0);
  kp_LOG_LogEntry target;
  _kp_LOG_log_entry_imp::log_major_version = 50;
  target = source;
  EXPECT_EQ(_kp_LOG_log_entry_imp::log_major_version, 50U);
  const kp_LOG_LogEntry copy(source);
  EXPECT_EQ(_kp_LOG_log_entry_imp::log_major_version, 3U);
}

TEST(EntryHandle, AssignmentReturnsTheHandle) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry source(17, 4);
  kp_LOG_LogEntry target;
  EXPECT_EQ(&(target = source), &target);
  EXPECT_EQ(target.GetLogLevel(), 4U);
}

TEST(EntryHandle, AHandleAssignedToItselfIsCleared) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 4);
  entry.AddAttrib4u("A6", 1);
  const kp_LOG_LogEntry& itself = entry;
  entry = itself;
  EXPECT_EQ(entry.GetEntryID(), 17U);
  EXPECT_EQ(entry.GetLogLevel(), 0U);
  EXPECT_FALSE(entry.RemoveAttrib("A6"));
}

// --- Header -------------------------------------------------------------------------------------

TEST(EntryHandle, IdAndLevelAreSet) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry;
  entry.SetEntryID(17);
  entry.SetLogLevel(8);
  EXPECT_EQ(entry.GetEntryID(), 17U);
  EXPECT_EQ(entry.GetLogLevel(), 8U);
  EXPECT_THROW(entry.SetLogLevel(10), KPX_logging_invalid_log_level);
  EXPECT_THROW(entry.SetEntryID(18), KPX_logging_entry_type_not_found);
  EXPECT_EQ(entry.GetEntryID(), 17U);
}

TEST(EntryHandle, TheLogVersionIsThatOfTheDefinitions) {
  ldf_file file = ldf_with_every_type();
  file.log_version = "3.7";
  file.entries.push_back({.id = 9});
  const loaded_definitions definitions(file);
  unsigned major = 0;
  unsigned minor = 0;
  kp_LOG_LogEntry::GetLogVersion(major, minor);
  EXPECT_EQ(major, 3U);
  EXPECT_EQ(minor, 7U);
  EXPECT_EQ(kp_LOG_LogEntry::GetLogMajorVersion(), 3U);
  EXPECT_EQ(kp_LOG_LogEntry::GetLogMinorVersion(), 7U);
}

TEST(EntryHandle, TheEventsDateAndTimeAreLocal) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 0);
  kp_Time time(2026, 12, 31, 17, 2, 56, true);
  time.set_zone_bias(-480);
  time.set_daylight_flag(0);
  entry._get_imp().set_timestamp(time, true);
  unsigned short year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  entry.GetEventLocalDate(year, month, day);
  entry.GetEventLocalTime(hour, minute, second);
  EXPECT_EQ(year, 2027);
  EXPECT_EQ(month, 1);
  EXPECT_EQ(day, 1);
  EXPECT_EQ(hour, 1);
  EXPECT_EQ(minute, 2);
  EXPECT_EQ(second, 56);
}

TEST(EntryHandle, AnEntryThatNobodyStampedCarriesTheTimeItWasMade) {
  const loaded_definitions definitions(ldf_with_every_type());
  const kp_Time before;
  const kp_LOG_LogEntry entry(17, 0);
  const kp_Time after;
  const kp_Time stamp = entry.GetAttribTime("TIMESTAMP");
  EXPECT_LE(before.compare_time(stamp), 0);
  EXPECT_GE(after.compare_time(stamp), 0);
}

// --- Attributes ---------------------------------------------------------------------------------

TEST(EntryHandle, EveryAddIsReadBackByBothForms) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 0);
  entry.AddAttribBool("A1", true);
  entry.AddAttrib1u("A2", 200);
  entry.AddAttrib1("A3", -100);
  entry.AddAttrib2u("A4", 60000);
  entry.AddAttrib2("A5", -30000);
  entry.AddAttrib4u("A6", 4000000000U);
  entry.AddAttrib4("A7", -2000000000);
  entry.AddAttribFloat8("A8", 0.25);
  bool flag = false;
  unsigned char u1 = 0;
  char s1 = 0;
  unsigned short u2 = 0;
  short s2 = 0;
  unsigned u4 = 0;
  int s4 = 0;
  double f8 = 0;
  EXPECT_TRUE(entry.GetAttribBool("A1", flag) && flag && entry.GetAttribBool("A1"));
  EXPECT_TRUE(entry.GetAttrib1u("A2", u1) && u1 == 200 && entry.GetAttrib1u("A2") == 200);
  EXPECT_TRUE(entry.GetAttrib1("A3", s1) && s1 == -100 && entry.GetAttrib1("A3") == -100);
  EXPECT_TRUE(entry.GetAttrib2u("A4", u2) && u2 == 60000 && entry.GetAttrib2u("A4") == 60000);
  EXPECT_TRUE(entry.GetAttrib2("A5", s2) && s2 == -30000 && entry.GetAttrib2("A5") == -30000);
  EXPECT_TRUE(entry.GetAttrib4u("A6", u4) && u4 == 4000000000U &&
              entry.GetAttrib4u("A6") == 4000000000U);
  EXPECT_TRUE(entry.GetAttrib4("A7", s4) && s4 == -2000000000 &&
              entry.GetAttrib4("A7") == -2000000000);
  EXPECT_TRUE(entry.GetAttribFloat8("A8", f8) && f8 == 0.25 && entry.GetAttribFloat8("A8") == 0.25);
}

TEST(EntryHandle, TextsAndTimesAreReadBackByBothForms) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 0);
  const kp_Time time(2026, 11, 15, 17, 2, 56, true);
  entry.AddAttribStr("A9", "plain");
  entry.AddAttribMBStr("A15", "multi");
  entry.AddAttribTime("A23", time);
  const char* plain = nullptr;
  const char* multi = nullptr;
  kp_Time read;
  EXPECT_TRUE(entry.GetAttribStr("A9", plain));
  EXPECT_TRUE(entry.GetAttribMBStr("A15", multi));
  EXPECT_TRUE(entry.GetAttribTime("A23", read));
  EXPECT_STREQ(plain, "plain");
  EXPECT_STREQ(entry.GetAttribStr("A9"), "plain");
  EXPECT_STREQ(multi, "multi");
  EXPECT_STREQ(entry.GetAttribMBStr("A15"), "multi");
  EXPECT_EQ(read.compare_time(time), 0);
  EXPECT_EQ(entry.GetAttribTime("A23").compare_time(time), 0);
}

TEST(EntryHandle, UnsetAttributesLeaveTheOutParameterAlone) {
  const loaded_definitions definitions(ldf_with_every_type());
  const kp_LOG_LogEntry entry(17, 0);
  const char* text = "before";
  double number = 1.5;
  EXPECT_FALSE(entry.GetAttribStr("A9", text));
  EXPECT_FALSE(entry.GetAttribMBStr("A15", text));
  EXPECT_FALSE(entry.GetAttribFloat8("A8", number));
  EXPECT_STREQ(text, "before");
  EXPECT_EQ(number, 1.5);
}

TEST(EntryHandle, LineBreaksAreStoredEscaped) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 0);
  entry.AddAttribStr("A9", "a\nb");
  entry.AddAttribMBStr("A15", "a\rb");
  EXPECT_STREQ(entry.GetAttribStr("A9"), "a\\nb");
  EXPECT_STREQ(entry.GetAttribMBStr("A15"), "a\\rb");
}

TEST(EntryHandle, BuiltInFieldsAreSetByName) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 0);
  entry.AddAttrib1u("SEVERITY_CODE", 3);
  EXPECT_EQ(entry._get_imp().get_severity_code(), 3);
}

TEST(EntryHandle, RemovingAndClearing) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 5);
  entry.AddAttrib4u("A6", 1);
  entry.AddAttrib4("A7", 1);
  EXPECT_TRUE(entry.RemoveAttrib("A6"));
  EXPECT_FALSE(entry.RemoveAttrib("A6"));
  entry.ClearAttribs();
  EXPECT_FALSE(entry.RemoveAttrib("A7"));
  EXPECT_EQ(entry.GetLogLevel(), 0U);
  EXPECT_EQ(entry.GetEntryID(), 17U);
}

TEST(EntryHandle, AQueryNeverRaises) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 0);
  kp_AttributeType type = TypeGUID;
  EXPECT_EQ(entry.CheckAttribute(nullptr, type), -1);
  EXPECT_EQ(type, TypeGUID);
  EXPECT_EQ(entry.CheckAttribute("A6", type), 1);
  EXPECT_EQ(type, TypeUInt4);
  EXPECT_EQ(entry.CheckAttribute("FOO", type), -1);
  EXPECT_EQ(type, TypeUnknown);
  entry.AddAttrib4u("A6", 1);
  EXPECT_EQ(entry.CheckAttribute("A6", type), 0);
}

TEST(EntryHandle, AttributesAreDeclaredForOneTypeOrForAll) {
  const loaded_definitions definitions(ldf_with_every_type());
  EXPECT_TRUE(kp_LOG_LogEntry::AddAttributeDefinition(17, "X", TypeUInt4));
  EXPECT_FALSE(kp_LOG_LogEntry::AddAttributeDefinition(17, "X", TypeUInt4));
  EXPECT_TRUE(kp_LOG_LogEntry::AddAttributeDefinition(0, "Y", TypeUInt4));
  kp_LOG_LogEntry entry(17, 0);
  entry.AddAttrib4u("X", 1);
  entry.AddAttrib4u("Y", 2);
  EXPECT_EQ(entry.GetAttrib4u("Y"), 2U);
}

// --- Messages -----------------------------------------------------------------------------------

TEST(EntryHandle, TheConversionToTextIsTheReadableMessage) {
  const loaded_definitions definitions(ldf_with_every_type("text"));
  const kp_LOG_LogEntry entry(17, 0);
  const char* message = entry.GetReadableMessage(false, 0);
  EXPECT_STREQ(message, "");
  EXPECT_STREQ(static_cast<const char*>(entry), "");
}

TEST(EntryHandle, TheConversionToTextLeavesTheCacheOfTheChosenMessage) {
  const loaded_definitions definitions(ldf_with_every_type("%s%A9%"));
  kp_LOG_LogEntry entry(17, 0);
  entry.AddAttribStr("A9", "text");
  EXPECT_STREQ(static_cast<const char*>(entry), "");
  char buffer[16] = "untouched";
  EXPECT_STREQ(entry._get_imp().get_readable_message(buffer, 15, false, 0), "");
  EXPECT_STREQ(buffer, "untouched");
  EXPECT_STREQ(entry._get_imp().get_readable_message(buffer, 15, true, 0), "text");
}

// --- Code pages ---------------------------------------------------------------------------------

TEST(EntryHandle, TextsAreConvertedToUtf8AndBack) {
  char utf8[32];
  unsigned length = 31;
  ASSERT_TRUE(kp_LOG_LogEntry::ConvertToUTF8("\xE4\xF6", utf8, length, "ISO-8859-1"));
  EXPECT_STREQ(utf8, "\xC3\xA4\xC3\xB6");
  EXPECT_EQ(length, 4U);
  char latin[32];
  length = 31;
  ASSERT_TRUE(kp_LOG_LogEntry::ConvertFromUTF8(utf8, latin, length, "ISO-8859-1"));
  EXPECT_STREQ(latin, "\xE4\xF6");
  EXPECT_EQ(length, 2U);
}

TEST(EntryHandle, AConversionMayFillItsDestinationAndEndsWithANul) {
  char dst[] = "########";
  unsigned length = 4;
  ASSERT_TRUE(kp_LOG_LogEntry::ConvertToUTF8("\xE4\xF6", dst, length, "ISO-8859-1"));
  EXPECT_EQ(length, 4U);
  EXPECT_EQ(std::string(dst, 8), std::string("\xC3\xA4\xC3\xB6\0###", 8));
}

TEST(EntryHandle, AConversionThatDoesNotFitFails) {
  char dst[] = "########";
  unsigned length = 3;
  EXPECT_FALSE(kp_LOG_LogEntry::ConvertToUTF8("\xE4\xF6", dst, length, "ISO-8859-1"));
  EXPECT_EQ(length, 3U);
  EXPECT_EQ(std::string(dst + 3, 5), "#####");
}

TEST(EntryHandle, WhatAConversionCannotTellIsSubstituted) {
  char utf8[32];
  unsigned length = 31;
  ASSERT_TRUE(kp_LOG_LogEntry::ConvertToUTF8("a\xFFz", utf8, length, "US-ASCII"));
  EXPECT_STREQ(utf8, "a\xEF\xBF\xBDz");
  EXPECT_EQ(length, 5U);
  char latin[32];
  length = 31;
  ASSERT_TRUE(kp_LOG_LogEntry::ConvertFromUTF8("a\xE2\x82\xACz", latin, length, "ISO-8859-1"));
  EXPECT_STREQ(latin, "a\x1Az");
  EXPECT_EQ(length, 3U);
}

TEST(EntryHandle, AnUnknownCodePageFails) {
  char dst[] = "########";
  unsigned length = 8;
  EXPECT_FALSE(kp_LOG_LogEntry::ConvertToUTF8("a", dst, length, "no-such-code-page"));
  EXPECT_FALSE(kp_LOG_LogEntry::ConvertFromUTF8("a", dst, length, "no-such-code-page"));
  EXPECT_EQ(length, 8U);
  EXPECT_STREQ(dst, "########");
}

using conversion = bool (*)(const char*, char*, unsigned&, const char*);

TEST(EntryHandle, NullArgumentsAndNoRoomFailWithoutTouchingTheDestination) {
  for (conversion convert : {conversion(&kp_LOG_LogEntry::ConvertToUTF8),
                             conversion(&kp_LOG_LogEntry::ConvertFromUTF8)}) {
    char dst[] = "########";
    unsigned length = 8;
    EXPECT_FALSE(convert(nullptr, dst, length, "UTF-8"));
    EXPECT_FALSE(convert("a", nullptr, length, "UTF-8"));
    EXPECT_FALSE(convert("a", dst, length, nullptr));
    EXPECT_EQ(length, 8U);
    length = 0;
    EXPECT_FALSE(convert("a", dst, length, "UTF-8"));
    EXPECT_EQ(length, 0U);
    EXPECT_STREQ(dst, "########");
  }
}

TEST(EntryHandle, AnImpossibleLengthFails) {
  char dst[] = "########";
  unsigned length = 2147483648U;
  EXPECT_FALSE(kp_LOG_LogEntry::ConvertToUTF8("a", dst, length, "UTF-8"));
  EXPECT_EQ(length, 2147483648U);
  EXPECT_STREQ(dst, "########");
}

TEST(EntryHandle, AnEmptyTextIsConvertedToNothing) {
  char dst[] = "########";
  unsigned length = 8;
  EXPECT_TRUE(kp_LOG_LogEntry::ConvertToUTF8("", dst, length, "Shift_JIS"));
  EXPECT_EQ(length, 0U);
  EXPECT_STREQ(dst, "");
}
