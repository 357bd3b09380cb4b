// The timestamp of an entry, and the attributes that are derived from it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/logentry_i.h"
#include "tests/support/entry_header.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"

using entry_t = _kp_LOG_log_entry_imp;

// --- Timestamp ----------------------------------------------------------------------------------

TEST(EntryTimestamp, ALocalTimestampCountsDaylightSavingAndAGmtOneDoesNot) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  entry.set_timestamp(shanghai_summer(), false);
  EXPECT_EQ(entry.get_attrib_2("TIMEZONE_DIFFERENCE"), 540);
  EXPECT_TRUE(entry.get_attrib_bool("DAYLIGHT_SAVING_ACTIVE"));
  entry.set_timestamp(shanghai_summer(), true);
  EXPECT_EQ(entry.get_attrib_2("TIMEZONE_DIFFERENCE"), 480);
}

TEST(EntryTimestamp, ATimestampWithoutBiasHasNoDifference) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  kp_Time time = shanghai_summer();
  time.set_zone_bias(0);
  time.set_daylight_flag(0);
  entry.set_timestamp(time, false);
  EXPECT_EQ(entry.get_attrib_2("TIMEZONE_DIFFERENCE"), 0);
  EXPECT_FALSE(entry.get_attrib_bool("DAYLIGHT_SAVING_ACTIVE"));
  time.set_daylight_flag(1);
  entry.set_timestamp(time, false);
  EXPECT_EQ(entry.get_attrib_2("TIMEZONE_DIFFERENCE"), 60);
}

TEST(EntryTimestamp, TheDifferenceIsTakenAsSixteenBits) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  kp_Time time = shanghai_summer();
  time.set_zone_bias(-32768);
  time.set_daylight_flag(0);
  entry.set_timestamp(time, false);
  EXPECT_EQ(entry.get_attrib_2("TIMEZONE_DIFFERENCE"), -32768);
  time.set_daylight_flag(-3);
  entry.set_timestamp(time, false);
  EXPECT_EQ(entry.get_attrib_2("TIMEZONE_DIFFERENCE"), -32708);
  EXPECT_TRUE(entry.get_attrib_bool("DAYLIGHT_SAVING_ACTIVE"));
}

TEST(EntryTimestamp, TwoTimestampsOfOneZoneWriteTheDerivedAttributesOnce) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  entry.set_timestamp(shanghai_summer(), false);
  ASSERT_TRUE(entry.remove_attrib("TIMEZONE_DIFFERENCE"));
  ASSERT_TRUE(entry.remove_attrib("DAYLIGHT_SAVING_ACTIVE"));
  entry.set_timestamp(shanghai_summer(), false);
  EXPECT_FALSE(entry._holds("TIMEZONE_DIFFERENCE"));
  EXPECT_FALSE(entry._holds("DAYLIGHT_SAVING_ACTIVE"));
}

TEST(EntryTimestamp, AClearedEntryWritesTheDerivedAttributesAgain) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  entry.set_timestamp(shanghai_summer(), false);
  entry.clear_attribs(false);
  entry.set_timestamp(shanghai_summer(), false);
  EXPECT_TRUE(entry._holds("TIMEZONE_DIFFERENCE"));
  EXPECT_TRUE(entry._holds("DAYLIGHT_SAVING_ACTIVE"));
}

// -1 is what is remembered when nothing was written yet.
TEST(EntryTimestamp, ADifferenceOfMinusOneCountsAsWrittenAtFirst) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  kp_Time time = shanghai_summer();
  time.set_zone_bias(1);
  time.set_daylight_flag(-1);
  entry.set_timestamp(time, true);
  EXPECT_FALSE(entry._holds("TIMEZONE_DIFFERENCE"));
  EXPECT_FALSE(entry._holds("DAYLIGHT_SAVING_ACTIVE"));
}

TEST(EntryTimestamp, ATypeWithoutTheDerivedAttributesTakesNoTimestamp) {
  const loaded_definitions definitions({.entries = {{.id = 17}}});
  entry_t entry(17, 0);
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>(
                [&] { entry.set_timestamp(shanghai_summer(), false); }),
            "TIMEZONE_DIFFERENCEis an invalid attibute under Entry ID 17 !");
  EXPECT_EQ(printed(entry.get_timestamp(false)), printed(shanghai_summer()));
}

TEST(EntryTimestamp, AValueIsRememberedOnlyOnceItIsAdded) {
  const loaded_definitions definitions({.entries = {{.id = 17}}});
  entry_t entry(17, 0);
  EXPECT_THROW(entry.set_timestamp(shanghai_summer(), false), KPX_logging_invalid_attribute_name);
  entry_t::add_product_specific_attribute_definition(17, "TIMEZONE_DIFFERENCE", TypeSInt2);
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>(
                [&] { entry.set_timestamp(shanghai_summer(), false); }),
            "DAYLIGHT_SAVING_ACTIVEis an invalid attibute under Entry ID 17 !");
  EXPECT_EQ(entry.get_attrib_2("TIMEZONE_DIFFERENCE"), 540);
  entry_t::add_product_specific_attribute_definition(17, "DAYLIGHT_SAVING_ACTIVE", TypeBool);
  entry.set_timestamp(shanghai_summer(), false);
  EXPECT_TRUE(entry.get_attrib_bool("DAYLIGHT_SAVING_ACTIVE"));
}

TEST(EntryTimestamp, ATimestampIsReadInTheModeAskedFor) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  entry.set_timestamp(shanghai_summer(), false);
  EXPECT_EQ(printed(entry.get_timestamp(false)), "2026-11-15T17:02:56+09:00");
  EXPECT_EQ(printed(entry.get_timestamp(true)), "2026-11-15T08:02:56Z");
  entry.set_timestamp(shanghai_summer(), true);
  EXPECT_EQ(printed(entry.get_timestamp(true)), "2026-11-15T17:02:56Z");
  EXPECT_EQ(printed(entry.get_timestamp(false)), "2026-11-16T02:02:56+09:00");
}

TEST(EntryTimestamp, ReadingATimestampDoesNotConvertTheStoredOne) {
  const loaded_definitions definitions(entry_types({17}));
  entry_t entry(17, 0);
  entry.set_timestamp(shanghai_summer(), true);
  entry.get_timestamp(false);
  EXPECT_TRUE(entry.get_attrib_time("TIMESTAMP").is_GMT_time_mode());
}
