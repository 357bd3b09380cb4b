// What programs reach without the headers of logging/: an entry's time, and what it holds.
#include "kp_LOG_EntryAccess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>

#include "kp_LOG_LogEntry.h"
#include "tests/support/entry_header.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

static ldf_file with_zone_attributes() {
  return {.entries = {{.id = 5,
                       .attributes = {{"TIMEZONE_DIFFERENCE", TypeSInt2},
                                      {"DAYLIGHT_SAVING_ACTIVE", TypeBool},
                                      {"TEXT", TypeMBChar64},
                                      {"NUMBER", TypeUInt4}}},
                      {.id = 6, .attributes = {{"NUMBER", TypeUInt4}}}}};
}

static std::map<std::string, kp_AttributeType> held_by(const kp_LOG_LogEntry& entry) {
  std::map<std::string, kp_AttributeType> held;
  kp_LOG_ForEachAttribute(entry, [&](const char* name, kp_AttributeType type) {
    EXPECT_TRUE(held.emplace(name, type).second) << name << " twice";
  });
  return held;
}

TEST(EntryTime, IsTheOneThatIsSet) {
  const loaded_definitions definitions(with_zone_attributes());
  kp_LOG_LogEntry entry(5, 1);
  kp_Time time;
  ASSERT_TRUE(time.set_to_string_value("2026-11-15T17:02:56+08:00"));
  kp_LOG_SetTime(entry, time);
  EXPECT_EQ(printed(entry.GetAttribTime("TIMESTAMP")), "2026-11-15T17:02:56+08:00");
  EXPECT_EQ(entry.GetAttrib2("TIMEZONE_DIFFERENCE"), 480);
  EXPECT_FALSE(entry.GetAttribBool("DAYLIGHT_SAVING_ACTIVE"));
}

TEST(EntryTime, IsKeptInTheModeThatItIsToldIn) {
  const loaded_definitions definitions(with_zone_attributes());
  kp_LOG_LogEntry entry(5, 1);
  kp_Time time(2026, 7, 15, 12, 0, 0, true);
  time.set_zone_bias(-480);
  time.set_daylight_flag(1);
  kp_LOG_SetTime(entry, time);
  EXPECT_EQ(printed(entry.GetAttribTime("TIMESTAMP")), "2026-07-15T12:00:00Z");
  EXPECT_EQ(entry.GetAttrib2("TIMEZONE_DIFFERENCE"), 480);
  time.GMT_to_local();
  kp_LOG_SetTime(entry, time);
  EXPECT_EQ(printed(entry.GetAttribTime("TIMESTAMP")), "2026-07-15T21:00:00+09:00");
  EXPECT_EQ(entry.GetAttrib2("TIMEZONE_DIFFERENCE"), 540);
  EXPECT_TRUE(entry.GetAttribBool("DAYLIGHT_SAVING_ACTIVE"));
}

TEST(EntryTime, NeedsTheAttributesOfTheZoneAndIsTakenAllTheSame) {
  const loaded_definitions definitions(with_zone_attributes());
  kp_LOG_LogEntry entry(6, 1);
  const kp_Time time(2026, 7, 15, 12, 0, 0, true);
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>([&] { kp_LOG_SetTime(entry, time); }),
            "TIMEZONE_DIFFERENCEis an invalid attibute under Entry ID 6 !");
  EXPECT_EQ(printed(entry.GetAttribTime("TIMESTAMP")), "2026-07-15T12:00:00Z");
  kp_LOG_LogEntry none;
  EXPECT_EQ(raised<KPX_logging_misc>([&] { kp_LOG_SetTime(none, time); }),
            "_kp_LOG_log_entry_imp::_get_attribute_internal(): entry not initialized");
}

TEST(HeldAttributes, AreVisitedOnceEachWithTheirTypes) {
  const loaded_definitions definitions(with_zone_attributes());
  kp_LOG_LogEntry entry(5, 1);
  EXPECT_THAT(held_by(entry), IsEmpty());
  entry.AddAttrib4u("NUMBER", 7);
  entry.AddAttribMBStr("TEXT", "x");
  entry.AddAttrib4u("NUMBER", 8);
  EXPECT_THAT(held_by(entry), ElementsAre(Pair("NUMBER", TypeUInt4), Pair("TEXT", TypeMBChar64)));
  kp_LOG_SetTime(entry, kp_Time());
  EXPECT_EQ(held_by(entry).size(), 4U);
  entry.RemoveAttrib("TEXT");
  entry.SetEntryID(6);
  EXPECT_THAT(held_by(entry),
              ElementsAre(Pair("DAYLIGHT_SAVING_ACTIVE", TypeBool), Pair("NUMBER", TypeUInt4),
                          Pair("TIMEZONE_DIFFERENCE", TypeSInt2)));
  entry.ClearAttribs();
  EXPECT_THAT(held_by(entry), IsEmpty());
}

TEST(HeldAttributes, WhatAVisitorRaisesPassesThrough) {
  const loaded_definitions definitions(with_zone_attributes());
  kp_LOG_LogEntry entry(5, 1);
  entry.AddAttrib4u("NUMBER", 7);
  entry.AddAttribMBStr("TEXT", "x");
  int visits = 0;
  EXPECT_THROW(kp_LOG_ForEachAttribute(entry,
                                       [&](const char*, kp_AttributeType) {
                                         ++visits;
                                         throw std::runtime_error("enough");
                                       }),
               std::runtime_error);
  EXPECT_EQ(visits, 1);
  EXPECT_EQ(held_by(entry).size(), 2U);
}
