// Entries made of records: events by name and ID, values of every type at their limits, times, and
// the exact text of every refusal.
#include "tools/record_entry.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "tests/tools/record_events.h"

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
      entry_message(events.make(R"({"event":1001,"attributes":{"USER_NAME":"ålice","PORT":7}})")),
      "ålice came in by port 7");
}
