// kplog.lost: the event of every set that has no event 0, as records tell it and as recorders make
// it.
#include "recording/records/lost.h"

#include "logging/logentry_i.h"
#include "recording/records/stored_form.h"
#include "tests/recording/records/record_events.h"

static ldf_file note_file() {
  return {.entries = {{.id = 1003, .msg_id = "NOTE", .msg_text = "%%"}}};
}

static std::string lost_record(const std::string& attributes) {
  return R"({"event":0,"name":"kplog.lost","level":2,"time":"2026-11-15T17:02:56+08:00",)"
         R"("attributes":{)" +
         attributes + "}}";
}

static std::string stored(const event_set& events, const made_entry& made) {
  std::string line;
  const std::string message = entry_message(made).text;
  stored_form(events.version())
      .append(line, {made, message, made.entry.GetAttribTime("TIMESTAMP")});
  return line;
}

TEST(LostEvents, AreToldWithAnyDefinitions) {
  record_events events(note_file());
  const made_entry& made = events.make(lost_record(R"("COUNT":17,"REASON":"full")"));
  EXPECT_TRUE(made.is_lost());
  EXPECT_EQ(made.event->name, "kplog.lost");
  EXPECT_EQ(made.entry.GetEntryID(), 0u);
  EXPECT_EQ(made.entry.GetLogLevel(), 2u);
  EXPECT_EQ(made.entry._get_imp().get_definition(), nullptr);
  EXPECT_EQ(made.lost.count, 17u);
  EXPECT_EQ(made.lost.reason, "full");
  EXPECT_EQ(entry_message(made).text, "17 events were lost: full");
  EXPECT_FALSE(entry_message(made).is_from_definition);
}

TEST(LostEvents, AreStoredAsTheyWereTold) {
  record_events events(note_file());
  const std::string line =
      R"({"version":"2.0","event":0,"name":"kplog.lost","level":2,)"
      R"("time":"2026-11-15T17:02:56+08:00","recorded":"2026-11-15T17:02:56.123456789+08:00",)"
      R"("host":"h","recorder":"r","pid":1,"thread":2,"sequence":3,)"
      R"("attributes":{"COUNT":1,"REASON":"\"no\nroom\""},)"
      R"("types":{"COUNT":"UInt4","REASON":"MBChar64"},"message_index":0,)"
      R"("message":"1 event was lost: \"no\nroom\""})";
  EXPECT_EQ(stored(events.events(), events.make(line)), line);
}

TEST(LostEvents, KeepTheZoneOfTheirTime) {
  const environment_value zone("TZ", "UTC-1");
  record_events events(note_file());
  for (const char* time : {"2026-11-15T17:02:56+08:00", "2026-11-15T17:02:56Z"}) {
    const made_entry& made = events.make(R"({"event":"kplog.lost","time":")" + std::string(time) +
                                         R"(","attributes":{"COUNT":1,"REASON":""}})");
    char text[64];
    made.entry.GetAttribTime("TIMESTAMP").print_out(text, sizeof text);
    EXPECT_STREQ(text, time);
  }
}

TEST(LostEvents, AreMadeWithoutARecord) {
  record_events events(note_file());
  made_entry made;
  made.message_index = 5;
  made.origin.host = "h";
  const kp_Time before;
  make_lost_entry(made, 4294967295, "full");
  const kp_Time after;
  EXPECT_TRUE(made.is_lost());
  EXPECT_EQ(made.entry.GetLogLevel(), 3u);
  EXPECT_EQ(made.message_index, 0u);
  EXPECT_EQ(made.origin.host, "");
  const kp_Time time = made.entry.GetAttribTime("TIMESTAMP");
  EXPECT_LE(before.compare_time(time), 0);
  EXPECT_GE(after.compare_time(time), 0);
  EXPECT_EQ(entry_message(made).text, "4294967295 events were lost: full");
  EXPECT_EQ(events.fault_in(stored(events.events(), made)), "");
}

TEST(LostEvents, StandBetweenOthers) {
  record_events events(note_file());
  const std::string note = R"({"event":1003})";
  const std::string lost = lost_record(R"("COUNT":2,"REASON":"")");
  for (const std::string& line : {note, lost, lost, note}) {
    const made_entry& made = events.make(line);
    EXPECT_EQ(made.is_lost(), line == lost);
    EXPECT_EQ(entry_message(made).text, line == lost ? "2 events were lost: " : "%");
  }
}

TEST(LostEvents, SayBothHowManyAndWhy) {
  record_events events(note_file());
  const auto fault = [&](const std::string& attributes) {
    return events.fault_in(R"({"event":0,"attributes":{)" + attributes + "}}");
  };
  const std::string both =
      "record-attribute 10: \"kplog.lost\" has the attributes \"COUNT\" and \"REASON\"";
  EXPECT_EQ(fault(""), both);
  EXPECT_EQ(fault(R"("COUNT":1)"), both);
  EXPECT_EQ(fault(R"("REASON":"")"), both);
  EXPECT_EQ(events.fault_in(R"({"event":"kplog.lost"})"), both);
  EXPECT_EQ(fault(R"("COUNT":1,"REASONS":"")"),
            "record-attribute 36: the event 0 has no attribute \"REASONS\"; did you mean "
            "\"REASON\"?");
  EXPECT_EQ(fault(R"("COUNT":4294967296,"REASON":"")"),
            "record-value 34: \"COUNT\" is a UInt4: a whole number from 0 to 4294967295, not "
            "4294967296");
  EXPECT_EQ(fault(R"("COUNT":1,"REASON":7)"),
            "record-value 45: \"REASON\" is a MBChar64: a text, not 7");
  EXPECT_NE(fault(R"("COUNT":1,"REASON":"\u0000")"), "");
  const std::string longest(63, 'x');
  EXPECT_EQ(fault(R"("COUNT":1,"REASON":")" + longest + "é\""), "");
  EXPECT_EQ(fault(R"("COUNT":1,"REASON":")" + longest + "😀\""),
            "record-value 45: \"REASON\" is a MBChar64: a text of at most 64 characters, not of "
            "65");
  EXPECT_EQ(events.fault_in(R"({"event":0,"time":"never"})"),
            "record-value 19: \"time\" is a time such as \"2026-11-15T17:02:56+08:00\", not "
            "\"never\"");
}

TEST(LostEvents, NameNoOtherEvent) {
  record_events events(note_file());
  EXPECT_EQ(events.fault_in(R"({"event":1003,"name":"kplog.lost"})"),
            "record-event 22: \"name\" is that of another event than 1003");
  EXPECT_EQ(events.fault_in(R"({"event":0,"name":"NOTE"})"),
            "record-event 19: \"name\" is that of another event than 0");
}

// --- Sets with such an event of their own

TEST(LostEvents, GiveWayToAnEvent0OfTheDefinitions) {
  record_events events({.entries = {{.id = 0,
                                     .msg_id = "OWN",
                                     .msg_text = "%d%COUNT%",
                                     .attributes = {{"COUNT", TypeUInt2}}}}});
  const made_entry& made = events.make(R"({"event":0,"attributes":{"COUNT":7}})");
  EXPECT_FALSE(made.is_lost());
  EXPECT_EQ(made.event->name, "OWN");
  EXPECT_EQ(made.entry.GetAttrib2u("COUNT"), 7);
  EXPECT_EQ(entry_message(made).text, "7");
  EXPECT_EQ(events.fault_in(R"({"event":"kplog.lost"})"),
            "record-event 10: no event \"kplog.lost\"");
}

TEST(LostEvents, LeaveTheirNameToAnEventOfTheDefinitions) {
  record_events events({.entries = {{.id = 5, .msg_id = "kplog.lost", .msg_text = "own"}}});
  EXPECT_EQ(events.make(R"({"event":"kplog.lost"})").event->id, 5u);
  EXPECT_TRUE(events.make(lost_record(R"("COUNT":1,"REASON":"")")).is_lost());
}
