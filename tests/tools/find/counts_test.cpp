// Records counted by what they have in common.
#include "tools/find/counts.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/recording/records/record_events.h"
#include "tests/support/zone_setting.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace chrono = std::chrono;

static constexpr chrono::system_clock::time_point now{
    chrono::sys_days(chrono::year(2026) / 11 / 15) + chrono::hours(9)};

static ldf_file two_events() {
  return {.log_version = "2.0",
          .globals = {},
          .entries = {{.id = 1001, .msg_id = "LOGIN", .msg_text = "in", .attributes = {}},
                      {.id = 1003, .msg_text = "no name", .attributes = {}}}};
}

class Counts : public testing::Test {
 protected:
  record_counts counted(const std::vector<std::string>& keys,
                        const std::vector<std::string>& records) {
    record_counts counts(keys, now);
    for (const std::string& record : records) counts.add(parser_.parse(record), events_.events());
    return counts;
  }
  std::string csv(const std::vector<std::string>& keys, const std::vector<std::string>& records) {
    return counted(keys, records).shown(count_format::csv, 0);
  }

  event_set_settings settings_;
  record_events events_{two_events()};
  record_parser parser_;
};

static std::string at(const std::string& time) {
  return R"({"event":1001,"time":")" + time + "\"}";
}

TEST_F(Counts, EventsAreByTheirNames) {
  EXPECT_EQ(csv({"event"}, {R"({"event":1001})", R"({"event":"LOGIN"})", R"({"event":1003})",
                            R"({"event":9,"name":"GONE"})", R"({"event":9})"}),
            "event,count\r\n1003,1\r\n9,1\r\nGONE,1\r\nLOGIN,2\r\n");
}

TEST_F(Counts, LevelsAreByNumberAndHostsMayBeUnknown) {
  EXPECT_EQ(csv({"level", "host"},
                {R"({"event":1001,"level":9,"host":"b"})", R"({"event":1001,"level":0,"host":"b"})",
                 R"({"event":1001})", R"({"event":1001,"level":9,"host":"a"})"}),
            "level,host,count\r\n0,b,1\r\n3,,1\r\n9,a,1\r\n9,b,1\r\n");
}

TEST_F(Counts, AKeyThatComesAgainCountsForNothing) {
  EXPECT_EQ(csv({"level", "event", "level"}, {R"({"event":1001})"}),
            "level,event,count\r\n3,LOGIN,1\r\n");
}

TEST_F(Counts, TimesAreToldInTheZoneOfThisMachine) {
  const zone_setting zone("Asia/Singapore");
  const std::vector<std::string> records = {at("2026-11-30T15:59:59Z"), at("2026-11-30T16:00:00Z"),
                                            at("2026-11-30T12:00:00-05:00"), R"({"event":1001})"};
  EXPECT_EQ(csv({"day"}, records), "day,count\r\n2026-11-15,1\r\n2026-11-30,1\r\n2026-12-01,2\r\n");
  EXPECT_EQ(csv({"month"}, records), "month,count\r\n2026-11,2\r\n2026-12,2\r\n");
  EXPECT_EQ(csv({"hour"}, records),
            "hour,count\r\n2026-11-15T17:00:00+08:00,1\r\n2026-11-30T23:00:00+08:00,1\r\n"
            "2026-12-01T00:00:00+08:00,1\r\n2026-12-01T01:00:00+08:00,1\r\n");
}

// The hour from 2 to 3 comes twice when daylight time ends.
TEST_F(Counts, AnHourThatComesTwiceHasTwoRows) {
  const zone_setting zone("Europe/Berlin");
  EXPECT_EQ(csv({"hour"}, {at("2026-10-25T01:30:00Z"), at("2026-10-25T00:30:00Z"),
                           at("2026-10-25T00:59:59Z"), at("2026-10-25T02:00:00Z")}),
            "hour,count\r\n2026-10-25T02:00:00+02:00,2\r\n2026-10-25T02:00:00+01:00,1\r\n"
            "2026-10-25T03:00:00+01:00,1\r\n");
}

TEST_F(Counts, HoursOfZonesBetweenHoursBeginWhereTheirsDo) {
  const zone_setting zone("Asia/Kathmandu");
  EXPECT_EQ(csv({"hour"}, {at("2026-11-15T09:14:59Z"), at("2026-11-15T09:15:00Z")}),
            "hour,count\r\n2026-11-15T14:00:00+05:45,1\r\n2026-11-15T15:00:00+05:45,1\r\n");
}

TEST_F(Counts, YearsThatNoClockReachesStandAsTheyAreTold) {
  const zone_setting zone("Asia/Singapore");
  EXPECT_EQ(csv({"month"}, {at("9999-12-31T23:59:59Z"), at("0001-01-01T00:00:00Z"),
                            at("9999-12-31T23:59:59Z")}),
            "month,count\r\n0001-01,1\r\n9999-12,2\r\n");
}

TEST_F(Counts, ATimeThatIsNoneHasARowOfItsOwn) {
  EXPECT_EQ(csv({"day"}, {at("soon"), at("soon"), at("a\\u0000b")}), "day,count\r\n,3\r\n");
}

TEST_F(Counts, WhatIsBeyondTheMostRowsIsCountedTogether) {
  record_counts counts({"event"}, now);
  for (size_t i = 0; i < record_counts::most_rows + 7; ++i)
    counts.add(parser_.parse(R"({"event":"E)" + std::to_string(i) + "\"}"), events_.events());
  counts.add(parser_.parse(R"({"event":"E0"})"), events_.events());
  EXPECT_THAT(counts.shown(count_format::csv, 0), EndsWith("\r\n(others),7\r\n"));
  const auto json = nlohmann::json::parse(counts.shown(count_format::json, 0));
  EXPECT_EQ(json["total"], record_counts::most_rows + 8);
  EXPECT_EQ(json["others"], 7);
  EXPECT_EQ(json["rows"].size(), record_counts::most_rows);
  EXPECT_EQ(json["rows"][0], nlohmann::json::parse(R"({"event":"E0","count":2})"));
}

// A name that nobody bounds takes no more memory than another.
TEST_F(Counts, LongNamesAreShortened) {
  const std::string name(100'000, 'x');
  EXPECT_EQ(csv({"event"}, {R"({"event":")" + name + "\"}"}),
            "event,count\r\n" + name.substr(0, 64) + "...,1\r\n");
}

TEST_F(Counts, NothingIsATableOfItsHeadings) {
  EXPECT_EQ(counted({"event", "day"}, {}).shown(count_format::table, 0), "EVENT  DAY  ENTRIES\n");
  EXPECT_THAT(counted({"event"}, {}).shown(count_format::svg, 0), HasSubstr(">No entries</text>"));
  EXPECT_EQ(nlohmann::json::parse(counted({"event"}, {}).shown(count_format::json, 0)),
            nlohmann::json::parse(R"({"total":0,"others":0,"rows":[]})"));
}

TEST_F(Counts, TablesHaveBarsWhereThereIsRoom) {
  const record_counts counts =
      counted({"event"}, {R"({"event":1001})", R"({"event":1001})", R"({"event":1003})"});
  EXPECT_EQ(counts.shown(count_format::table, 24),
            "EVENT  ENTRIES\n1003         1  \u2588\u2588\u2588\u2588\n"
            "LOGIN        2  \u2588\u2588\u2588\u2588\u2588\u2588\u2588\u2588\n");
  EXPECT_THAT(counts.shown(count_format::table, 23), Not(HasSubstr("\u2588")));
}

TEST_F(Counts, PicturesTellTheMostAndEveryRow) {
  const std::string picture = counted({"event", "level"}, {R"({"event":1001})", R"({"event":1001})",
                                                           R"({"event":"<&\u001b>","level":1})"})
                                  .shown(count_format::svg, 0);
  EXPECT_THAT(picture, HasSubstr(">Records by event, level</text>"));
  EXPECT_THAT(picture, HasSubstr(">3 records. Most: LOGIN, 3 with 2 entries.</desc>"));
  EXPECT_THAT(picture, HasSubstr("<title>LOGIN, 3: 2 entries</title>"));
  EXPECT_THAT(picture, HasSubstr("<title>&lt;&amp;\\x1B&gt;, 1: 1 entry</title>"));
}
