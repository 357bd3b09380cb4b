// Entries made of records: events by name and ID, values of every type at their limits, times, and
// the exact text of every refusal.
#include "recording/records/entry.h"

#include <gmock/gmock.h>

#include <cmath>
#include <ctime>
#include <limits>

#include "logging/logentry_i.h"
#include "recording/definitions/model.h"
#include "recording/records/values.h"
#include "tests/recording/records/record_events.h"

static ldf_file login_file() {
  return {.log_version = "2.0",
          .entries = {{.id = 1001,
                       .msg_id = "USER_LOGIN",
                       .msg_text = "%s%USER_NAME% came in by port %d%PORT%",
                       .attributes = {{"USER_NAME", TypeMBChar64}, {"PORT", TypeUInt2}}}}};
}

TEST(RecordEntry, HoldsWhatTheRecordSays) {
  record_events events(login_file());
  const made_entry& made =
      events.make(R"({"event":"USER_LOGIN","level":5,"time":"2026-11-15T17:02:56+08:00",)"
                  R"("attributes":{"USER_NAME":"alice","PORT":51234},"message_index":2})");
  EXPECT_EQ(made.event->id, 1001u);
  EXPECT_EQ(made.entry.GetEntryID(), 1001u);
  EXPECT_EQ(made.entry.GetLogLevel(), 5u);
  EXPECT_STREQ(made.entry.GetAttribMBStr("USER_NAME"), "alice");
  EXPECT_EQ(made.entry.GetAttrib2u("PORT"), 51234);
  EXPECT_EQ(made.message_index, 2u);
  char time[64];
  made.entry.GetAttribTime("TIMESTAMP").print_out(time, sizeof time);
  EXPECT_STREQ(time, "2026-11-15T17:02:56+08:00");
}

TEST(RecordEntry, RendersItsMessage) {
  record_events events(login_file());
  EXPECT_EQ(
      entry_message(events.make(R"({"event":1001,"attributes":{"USER_NAME":"ålice","PORT":7}})"))
          .text,
      "ålice came in by port 7");
}

TEST(RecordEntry, CarriesWhereTheRecordCameFrom) {
  record_events events(login_file());
  const made_entry& made = events.make(R"({"event":1001,"sequence":7,"host":"h","recorder":"r"})");
  EXPECT_EQ(made.origin.host, "h");
  EXPECT_EQ(made.origin.recorder, "r");
  EXPECT_EQ(made.origin.sequence, 7u);
  EXPECT_EQ(made.origin.recorded, "");
  events.make(R"({"event":1001})");
  EXPECT_EQ(made.origin.host, "");
  EXPECT_FALSE(made.origin.sequence.has_value());
}

// --- header

TEST(RecordEntry, IsOfLevelThreeAndOfNowWhereTheRecordSaysNothing) {
  record_events events(login_file());
  const kp_Time before;
  const made_entry& made = events.make(R"({"event":1001})");
  const kp_Time after;
  EXPECT_EQ(made.entry.GetLogLevel(), 3u);
  EXPECT_EQ(made.message_index, 0u);
  const kp_Time time = made.entry.GetAttribTime("TIMESTAMP");
  EXPECT_LE(before.compare_time(time), 0);
  EXPECT_GE(after.compare_time(time), 0);
}

TEST(RecordEntry, ForgetsTheRecordBefore) {
  record_events events(login_file());
  events.make(R"({"event":1001,"level":9,"time":"2001-01-01T00:00:00Z","attributes":{"PORT":1}})");
  const made_entry& made = events.make(R"({"event":1001})");
  EXPECT_EQ(made.entry.GetLogLevel(), 3u);
  unsigned short port = 0;
  EXPECT_FALSE(made.entry.GetAttrib2u("PORT", port));
  EXPECT_NE(made.entry.GetAttribTime("TIMESTAMP").get_year(), 2001);
}

TEST(RecordEntry, ForgetsARefusedRecord) {
  record_events events(login_file());
  EXPECT_NE(events.fault_in(R"({"event":1001,"attributes":{"USER_NAME":"x","PORT":-1}})"), "");
  const char* name = nullptr;
  EXPECT_FALSE(events.make(R"({"event":1001})").entry.GetAttribMBStr("USER_NAME", name));
}

static std::string printed(const kp_Time& time) {
  char text[64];
  time.print_out(text, sizeof text);
  return text;
}

static std::string timestamp_of(record_events& events, const std::string& time) {
  return printed(
      events.make(R"({"event":1001,"time":")" + time + "\"}").entry.GetAttribTime("TIMESTAMP"));
}

TEST(RecordEntry, KeepsTheZoneThatTheTimeIsToldIn) {
  const environment_value zone("TZ", "UTC-1");
  record_events events(login_file());
  for (const char* time :
       {"2026-11-15T17:02:56+08:00", "2026-11-15T17:02:56Z", "2026-11-15T17:02:56-11:30",
        "0001-01-01T00:00:00+00:00", "9999-12-31T23:59:59+23:59"})
    EXPECT_EQ(timestamp_of(events, time), time);
  EXPECT_EQ(timestamp_of(events, "2026-11-15 17:02:56"), "2026-11-15T17:02:56+01:00");
  EXPECT_EQ(timestamp_of(events, "2026-11-15"), "2026-11-15T00:00:00+01:00");
}

TEST(RecordEntry, KeepsTheZoneInDeclaredAttributes) {
  record_events events(
      {.globals = {{"TIMEZONE_DIFFERENCE", TypeSInt2}}, .entries = {{.id = 1001}}});
  const made_entry& made = events.make(R"({"event":1001,"time":"2026-11-15T17:02:56+08:00"})");
  EXPECT_EQ(made.entry.GetAttrib2("TIMEZONE_DIFFERENCE"), 480);
  EXPECT_FALSE(made.entry.GetAttribBool("DAYLIGHT_SAVING_ACTIVE"));
  EXPECT_NE(made.event->find("TIMEZONE_DIFFERENCE"), nullptr);
  EXPECT_EQ(made.event->find("DAYLIGHT_SAVING_ACTIVE"), nullptr);
}

TEST(RecordEntry, KeepsZAsTheOffsetZero) {
  const environment_value zone("TZ", "UTC+5");
  record_events events({.globals = {{"TIMEZONE_DIFFERENCE", TypeSInt2}},
                        .entries = {{.id = 1001, .attributes = {{"AT", TypeTime}}}}});
  for (const char* time : {"2026-11-15T02:00:00Z", "2026-11-15T02:00:00+00:00"}) {
    const made_entry& made = events.make(R"({"event":1001,"time":")" + std::string(time) +
                                         R"(","attributes":{"AT":")" + time + "\"}}");
    EXPECT_EQ(made.entry.GetAttrib2("TIMEZONE_DIFFERENCE"), 0) << time;
    EXPECT_EQ(printed(made.entry.GetAttribTime("TIMESTAMP")), time);
    EXPECT_EQ(printed(made.entry.GetAttribTime("AT")), time);
    kp_Time local = made.entry.GetAttribTime("AT");
    local.GMT_to_local();
    EXPECT_EQ(printed(local), "2026-11-15T02:00:00+00:00");
    EXPECT_EQ(made.entry._get_imp().get_timestamp(false).get_hour(), 2) << time;
  }
}

TEST(RecordEntry, RefusesATimeThatIsNone) {
  record_events events(login_file());
  const auto fault = [&](const std::string& time) {
    return events.fault_in(R"({"event":1001,"time":")" + time + "\"}");
  };
  const std::string expected =
      "record-value 22: \"time\" is a time such as \"2026-11-15T17:02:56+08:00\", not ";
  EXPECT_EQ(fault("yesterday"), expected + "\"yesterday\"");
  EXPECT_EQ(fault(""), expected + "\"\"");
  EXPECT_EQ(fault("2026-02-29T00:00:00Z"), expected + "\"2026-02-29T00:00:00Z\"");
  for (const char* time : {"2026-11-15T17:02:56.Z", "2026-11-15T17:02:56.1234567890Z",
                           "2026-11-15T17:02:56,5Z", "2026-11-15T17:02.5Z", "2026-11-15.5",
                           "2026-11-15T17:02:56.5.5Z", "2026-11-15T17:02:56.-5Z"})
    EXPECT_EQ(fault(time), expected + '"' + time + '"');
  EXPECT_EQ(fault("2026-11-15\\u0000"), expected + std::string("\"2026-11-15\0\"", 13));
  // The same time again is read again.
  EXPECT_EQ(fault(""), expected + "\"\"");
}

TEST(RecordEntry, TakesAFractionOfItsSecondForWhatWasRecorded) {
  const environment_value zone("TZ", "UTC-1");
  record_events events(login_file());
  const auto recorded = [&](const std::string& members) {
    return std::string(events.make(R"({"event":1001)" + members + "}").origin.recorded);
  };
  EXPECT_EQ(recorded(R"(,"time":"2026-11-15T17:02:56.5+08:00")"), "2026-11-15T17:02:56.5+08:00");
  EXPECT_EQ(recorded(R"(,"time":"2026-11-15T17:02:56.123456789Z")"),
            "2026-11-15T17:02:56.123456789Z");
  EXPECT_EQ(recorded(R"(,"time":"2026-11-15 17:02:56.007")"), "2026-11-15T17:02:56.007+01:00");
  EXPECT_EQ(recorded(R"(,"time":"2026-11-15T17:02:56Z")"), "");
  EXPECT_EQ(recorded(""), "");
  EXPECT_EQ(recorded(R"(,"time":"2026-11-15T17:02:56.5Z","recorded":"2026-11-15T17:02:57Z")"),
            "2026-11-15T17:02:57Z");
  EXPECT_EQ(timestamp_of(events, "2026-11-15T17:02:56.999+08:00"), "2026-11-15T17:02:56+08:00");
  for (const std::string& told : {recorded(R"(,"time":"2026-11-15 17:02:56.000000001")"),
                                  recorded(R"(,"time":"0001-01-01T00:00:00.5-11:30")")})
    EXPECT_TRUE(is_record_origin_time(told)) << told;
}

TEST(RecordEntry, TakesAFractionOfAnotherSecondThatWasReadBefore) {
  record_events events(login_file());
  const auto recorded = [&](const std::string& time) {
    return std::string(events.make(R"({"event":1001,"time":")" + time + "\"}").origin.recorded);
  };
  EXPECT_EQ(recorded("2026-11-15T17:02:56.1Z"), "2026-11-15T17:02:56.1Z");
  EXPECT_EQ(recorded("2026-11-15T17:02:56.2Z"), "2026-11-15T17:02:56.2Z");
  EXPECT_EQ(recorded("2026-11-15T17:02:56Z"), "");
  EXPECT_EQ(recorded("2026-11-15T17:02:57.2Z"), "2026-11-15T17:02:57.2Z");
}

// --- events

TEST(RecordEntry, RefusesAnEventThatIsNotKnown) {
  ldf_file file = login_file();
  file.entries.push_back({.id = 1002, .msg_id = "TWICE"});
  file.entries.push_back({.id = 1003, .msg_id = "TWICE"});
  record_events events(file);
  EXPECT_EQ(events.fault_in(R"({"event":"USER_LOGON"})"),
            "record-event 10: no event \"USER_LOGON\"; did you mean \"USER_LOGIN\"?");
  EXPECT_EQ(events.fault_in(R"({"event":""})"), "record-event 10: no event \"\"");
  EXPECT_EQ(events.fault_in(R"({"event":1004})"), "record-event 10: no event 1004");
  EXPECT_EQ(events.fault_in(R"({"event":-1})"), "record-event 10: no event -1");
  EXPECT_EQ(events.fault_in(R"({"event":4294968297})"), "record-event 10: no event 4294968297");
  EXPECT_EQ(events.fault_in(R"({"event":"TWICE"})"),
            "record-event 10: several events have the name \"TWICE\"; give the ID");
}

TEST(RecordEntry, RefusesANameThatIsAnotherEvents) {
  ldf_file file = login_file();
  file.entries.push_back({.id = 1002, .msg_id = "TWICE"});
  file.entries.push_back({.id = 1003, .msg_id = "TWICE"});
  record_events events(file);
  EXPECT_EQ(events.fault_in(R"({"event":1001,"name":"USER_LOGIN"})"), "");
  EXPECT_EQ(events.fault_in(R"({"event":1003,"name":"TWICE"})"), "");
  EXPECT_EQ(events.fault_in(R"({"event":1001,"name":"ITS_NAME_ONCE"})"), "");
  EXPECT_EQ(events.fault_in(R"({"event":1001,"name":""})"), "");
  EXPECT_EQ(events.fault_in(R"({"event":1002,"name":"USER_LOGIN"})"),
            "record-event 22: \"name\" is that of another event than 1002");
  EXPECT_EQ(events.fault_in(R"({"event":"USER_LOGIN","name":"TWICE"})"),
            "record-event 30: \"name\" is that of another event than 1001");
}

TEST(RecordEntry, RefusesAnAttributeThatIsNotDeclared) {
  record_events events(login_file());
  EXPECT_EQ(events.fault_in(R"({"event":1001,"attributes":{"PROT":1}})"),
            "record-attribute 29: the event 1001 has no attribute \"PROT\"; did you mean "
            "\"PORT\"?");
  EXPECT_EQ(events.fault_in(R"({"event":1001,"attributes":{"":1}})"),
            "record-attribute 29: the event 1001 has no attribute \"\"");
  EXPECT_EQ(events.fault_in(R"({"event":1001,"attributes":{"TIMEZONE_DIFFERENCE":1}})"),
            "record-attribute 29: the event 1001 has no attribute \"TIMEZONE_DIFFERENCE\"");
}

TEST(RecordEntry, IsGivenNoSecondTime) {
  record_events events({.globals = {{"TIMESTAMP", TypeTimestamp}}, .entries = {{.id = 1001}}});
  const std::string record = R"({"event":1001,"time":"2021-01-02T03:04:05Z","attributes":)";
  EXPECT_EQ(
      events.fault_in(record + R"({"TIMESTAMP":"2020-01-02T03:04:05Z"}})"),
      "record-value 71: \"TIMESTAMP\" is the entry's own time: give it as \"time\", here it is "
      "another");
  EXPECT_EQ(
      events.fault_in(R"({"event":1001,"attributes":{"TIMESTAMP":"2020-01-02"}})"),
      "record-value 41: \"TIMESTAMP\" is the entry's own time: give it as \"time\", here it is "
      "another");
  const made_entry& made = events.make(record + R"({"TIMESTAMP":"2021-01-02T05:04:05+02:00"}})");
  EXPECT_EQ(printed(made.entry.GetAttribTime("TIMESTAMP")), "2021-01-02T03:04:05Z");
}

// --- values

// Attributes A1 to A24 of every type, of the event 17.
static std::string record_of(const std::string& attribute, const std::string& value) {
  return R"({"event":17,"attributes":{")" + attribute + "\":" + value + "}}";
}

struct value_case {
  const char* attribute;
  const char* value;
  const char* fault;  // behind the name; "": the value is held
};

class RecordValue : public testing::TestWithParam<value_case> {};

TEST_P(RecordValue, IsCheckedAgainstItsType) {
  record_events events(ldf_with_every_type());
  const auto& [attribute, value, fault] = GetParam();
  const std::string column = std::to_string(30 + std::string(attribute).size());
  EXPECT_EQ(events.fault_in(record_of(attribute, value)),
            *fault == '\0' ? "" : "record-value " + column + ": \"" + attribute + "\" " + fault);
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, RecordValue,
    testing::ValuesIn(std::vector<value_case>{
        {"A1", "true", ""},
        {"A1", "false", ""},
        {"A1", "1", "is a Bool: true or false, not 1"},
        {"A1", "\"true\"", "is a Bool: true or false, not \"true\""},
        {"A1", "null", "is a Bool: true or false, not null"},
        {"A2", "0", ""},
        {"A2", "255", ""},
        {"A2", "-0", ""},
        {"A2", "256", "is a UInt1: a whole number from 0 to 255, not 256"},
        {"A2", "-1", "is a UInt1: a whole number from 0 to 255, not -1"},
        {"A2", "1.0", "is a UInt1: a whole number from 0 to 255, not 1.0"},
        {"A2", "1e1", "is a UInt1: a whole number from 0 to 255, not 1e1"},
        {"A2", "true", "is a UInt1: a whole number from 0 to 255, not true"},
        {"A2", "\"5\"", "is a UInt1: a whole number from 0 to 255, not \"5\""},
        {"A3", "-128", ""},
        {"A3", "127", ""},
        {"A3", "128", "is a SInt1: a whole number from -128 to 127, not 128"},
        {"A3", "-129", "is a SInt1: a whole number from -128 to 127, not -129"},
        {"A4", "65535", ""},
        {"A4", "65536", "is a UInt2: a whole number from 0 to 65535, not 65536"},
        {"A5", "-32768", ""},
        {"A5", "32767", ""},
        {"A5", "32768", "is a SInt2: a whole number from -32768 to 32767, not 32768"},
        {"A6", "4294967295", ""},
        {"A6", "4294967296", "is a UInt4: a whole number from 0 to 4294967295, not 4294967296"},
        {"A6", "18446744073709551616",
         "is a UInt4: a whole number from 0 to 4294967295, not 18446744073709551616"},
        {"A7", "-2147483648", ""},
        {"A7", "2147483647", ""},
        {"A7", "-2147483649",
         "is a SInt4: a whole number from -2147483648 to 2147483647, not -2147483649"},
        {"A8", "1", ""},
        {"A8", "-1.5e-3", ""},
        {"A8", "1.7976931348623157e308", ""},
        {"A8", "4.9406564584124654e-324", ""},
        {"A8", "0.0e9999", ""},
        {"A8", "\"NaN\"", ""},
        {"A8", "\"Infinity\"", ""},
        {"A8", "\"-Infinity\"", ""},
        {"A8", "1.7976931348623159e308",
         "is a Float: 0 or a number from 4.9e-324 to 1.7976931348623157e308 of either sign, not "
         "1.7976931348623159e308"},
        {"A8", "-1e400",
         "is a Float: 0 or a number from 4.9e-324 to 1.7976931348623157e308 of either sign, not "
         "-1e400"},
        {"A8", "\"nan\"",
         "is a Float: a number, \"NaN\", \"Infinity\" or \"-Infinity\", not \"nan\""},
        {"A8", "false", "is a Float: a number, \"NaN\", \"Infinity\" or \"-Infinity\", not false"},
    }));

INSTANTIATE_TEST_SUITE_P(
    Others, RecordValue,
    testing::ValuesIn(std::vector<value_case>{
        {"A9", "5", "is a Char32: a text, not 5"},
        {"A9", "null", "is a Char32: a text, not null"},
        {"A15", "true", "is a MBChar32: a text, not true"},
        {"A15", "\"\"", ""},
        {"A21", "\"2026-11-15\"", ""},
        {"A22", "\"2026-11-15T17:02:56+08:00\"", ""},
        {"A23", "\"2026-11-15T17:02:56Z\"", ""},
        {"A21", "20261115",
         "is a Date: a time such as \"2026-11-15T17:02:56+08:00\", not 20261115"},
        {"A22", "\"17:02:56\"",
         "is a Time: a time such as \"2026-11-15T17:02:56+08:00\", not \"17:02:56\""},
        {"A23", "\"2026-13-01\"",
         "is a Timestamp: a time such as \"2026-11-15T17:02:56+08:00\", not \"2026-13-01\""},
        {"A24", "\"6f0b\"", "is a GUID, and entries cannot be given one"},
    }));

TEST(RecordValues, RefusesANul) {
  record_events events(ldf_with_every_type());
  const std::string nul(1, '\0');
  const auto fault = [&](const char* attribute, const std::string& value) {
    try {
      events.make(record_of(attribute, value));
    } catch (const record_error& error) {
      return error.text();
    }
    return std::string();
  };
  EXPECT_EQ(fault("A9", "\"a\\u0000b\""),
            "\"A9\" is a Char32: a text without NUL, not \"a" + nul + "b\"");
  EXPECT_EQ(fault("A15", "\"\\u0000\""),
            "\"A15\" is a MBChar32: a text without NUL, not \"" + nul + "\"");
}

static std::string repeated(size_t count, const std::string& text) {
  std::string result;
  for (size_t i = 0; i < count; ++i) result += text;
  return result;
}

static constexpr size_t size_classes[] = {32, 64, 128, 256, 1024, 2048};

TEST(RecordValues, TakesBytesUpToTheSizeClass) {
  record_events events(ldf_with_every_type());
  for (unsigned i = 0; i < 6; ++i) {
    const std::string name = "A" + std::to_string(TypeChar32 + i);
    const size_t limit = size_classes[i];
    const std::string text = repeated(limit / 2, "é");
    const made_entry& made = events.make(record_of(name, "\"" + text + "\""));
    EXPECT_EQ(made.entry.GetAttribStr(name.c_str()), text);
    const std::string type = short_type_name(static_cast<kp_AttributeType>(TypeChar32 + i));
    const std::string column = std::to_string(30 + name.size());
    EXPECT_EQ(events.fault_in(record_of(name, "\"" + text + "x\"")),
              "record-value " + column + ": \"" + name + "\" is a " + type +
                  ": a text of at most " + std::to_string(limit) + " bytes, not of " +
                  std::to_string(limit + 1));
  }
}

TEST(RecordValues, TakesCharactersUpToTheSizeClass) {
  record_events events(ldf_with_every_type());
  for (unsigned i = 0; i < 6; ++i) {
    const std::string name = "A" + std::to_string(TypeMBChar32 + i);
    const size_t limit = size_classes[i];
    for (const std::string& text : {repeated(limit, "日"), repeated(limit / 2, "😀")}) {
      const made_entry& made = events.make(record_of(name, "\"" + text + "\""));
      EXPECT_EQ(made.entry.GetAttribMBStr(name.c_str()), text);
      const std::string type = short_type_name(static_cast<kp_AttributeType>(TypeMBChar32 + i));
      EXPECT_EQ(events.fault_in(record_of(name, "\"" + text + "x\"")),
                "record-value 33: \"" + name + "\" is a " + type + ": a text of at most " +
                    std::to_string(limit) + " characters, not of " + std::to_string(limit + 1));
    }
  }
}

// What an entry holds of a text with line breaks can be recorded again.
TEST(RecordValues, TakesKeptLineBreaksForOneCharacterEach) {
  record_events events(ldf_with_every_type());
  for (const char* name : {"A9", "A15"}) {
    const auto held = [&](const std::string& json) {
      const made_entry& made = events.make(record_of(name, "\"" + json + "\""));
      return std::string(*name == 'A' && name[1] == '9' ? made.entry.GetAttribStr(name)
                                                        : made.entry.GetAttribMBStr(name));
    };
    const std::string once = held(repeated(16, "\\n") + repeated(16, "\\r"));
    EXPECT_EQ(once, repeated(16, "\\n") + repeated(16, "\\r"));
    EXPECT_EQ(held(repeated(16, "\\\\n") + repeated(16, "\\\\r")), once);
    EXPECT_EQ(held("C:\\\\new"), "C:\\new");
    EXPECT_NE(events.fault_in(record_of(name, "\"" + repeated(33, "\\\\n") + "\"")), "");
  }
}

TEST(RecordValues, KeepsFloatsToTheLastBit) {
  record_events events(ldf_with_every_type());
  const auto held = [&](const char* json) {
    return events.make(record_of("A8", json)).entry.GetAttribFloat8("A8");
  };
  EXPECT_EQ(held("0.1"), 0.1);
  EXPECT_EQ(held("-1.7976931348623157e308"), std::numeric_limits<double>::lowest());
  EXPECT_EQ(held("5e-324"), std::numeric_limits<double>::denorm_min());
  EXPECT_TRUE(std::signbit(held("-0.0")));
  EXPECT_TRUE(std::signbit(held("-0")));
  EXPECT_TRUE(std::isnan(held("\"NaN\"")));
  EXPECT_EQ(held("\"-Infinity\""), -std::numeric_limits<double>::infinity());
  EXPECT_EQ(held("123456789012345678901234567890"), 123456789012345678901234567890.0);
}

TEST(RecordValues, NamesTheFloatsThatJsonLacks) {
  using limits = std::numeric_limits<double>;
  EXPECT_STREQ(special_float_text(limits::quiet_NaN()), "NaN");
  EXPECT_STREQ(special_float_text(-limits::quiet_NaN()), "NaN");
  EXPECT_STREQ(special_float_text(limits::infinity()), "Infinity");
  EXPECT_STREQ(special_float_text(-limits::infinity()), "-Infinity");
  EXPECT_EQ(special_float_text(limits::max()), nullptr);
}

TEST(RecordEntry, SaysWhyAMessageCannotBeRendered) {
  record_events events({.entries = {{.id = 1, .msg_id = "M", .msg_text = "%s%NOBODY%"}}});
  try {
    entry_message(events.make(R"({"event":1})"));
    ADD_FAILURE() << "nothing was raised";
  } catch (const record_error& error) {
    const std::string fault = shown_fault(error, "");
    EXPECT_EQ(fault.rfind("record-message 1: ", 0), 0u) << fault;
  }
}

// --- what size costs

// Lines of about that many bytes that are slow to read for who searches or copies too often.
static std::vector<std::string> laborious_lines(size_t size) {
  const auto text = [&](const std::string& unit) {
    return "\"" + repeated(size / unit.size(), unit) + "\"";
  };
  std::string names;
  for (int i = 0; i < 500; ++i) {
    const std::string number = std::to_string(1000 + i);
    names += (i == 0 ? "\"" : ",\"") + std::string(size / 500, 'x') + number + "\":0";
  }
  std::vector<std::string> lines;
  for (const char* name : {"A14", "A20"})
    for (const char* unit : {"\\\\n", "\\\\r", "\\n", "\\\\", "x", "\u200B", "\\u200b", "\x7F"})
      lines.push_back(record_of(name, text(unit)));
  for (const char* unit : {"1", "1.", "-"}) {
    lines.push_back(record_of("A7", repeated(size / std::string(unit).size(), unit)));
    lines.push_back(record_of("A8", "1." + repeated(size, unit)));
  }
  lines.push_back(R"({"event":17,"attributes":{)" + names + "}}");
  lines.push_back(R"({"event":17,"time":)" + text("2026-") + "}");
  lines.push_back("{\"event\":" + text("E") + "}");
  lines.push_back(R"({"event":17,"name":)" + text("M17") + "}");
  lines.push_back("{" + text("k") + ":1}");
  lines.push_back(R"({"event":17,"attributes":{)" + text("k") + ":1}}");
  lines.push_back(R"({"event":17,"types":{)" + names + "}}");
  for (const char* unit : {"[", "{\"a\":", "\"", "\\", " ", ",", "\xFF", "\"a\\n"})
    lines.push_back("{" + repeated(size / std::string(unit).size(), unit));
  return lines;
}

// Seconds of the processor that the quickest of some readings takes, with all that is told of it.
static double cost_of(record_events& events, const std::string& line, int readings) {
  double least = 1e9;
  for (int i = 0; i < readings; ++i) {
    const clock_t begin = clock();
    events.fault_in(line);
    least = std::min(least, static_cast<double>(clock() - begin) / CLOCKS_PER_SEC);
  }
  return least;
}

// Linear work is fortyfold then, quadratic work sixteen hundredfold; what is too short to be
// measured is taken for a tenth of a millisecond.
TEST(RecordCost, IsNotMoreThanLinearInTheSizeOfTheLine) {
  record_events events(ldf_with_every_type());
  const std::vector<std::string> small = laborious_lines(10'000);
  const std::vector<std::string> large = laborious_lines(400'000);
  for (size_t i = 0; i < small.size(); ++i)
    EXPECT_LT(cost_of(events, large[i], 1), 300 * std::max(cost_of(events, small[i], 3), 1e-4))
        << large[i].substr(0, 80);
}
