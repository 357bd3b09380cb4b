#include "recording/records/stored_start.h"

#include <gtest/gtest.h>

static constexpr const char* whole_line =
    R"({"version":"2.0","event":1001,"name":"A\"B","level":3,"time":"2026-11-15T17:02:56+08:00",)"
    R"("attributes":{},"types":{},"message_index":0,"message":""})";

TEST(StoredStart, TellsEventNameAndInstant) {
  stored_start_reader reader;
  const auto start = reader.read(whole_line);
  ASSERT_TRUE(start);
  EXPECT_EQ(start->event, 1001U);
  EXPECT_EQ(start->name, "A\\\"B");
  EXPECT_EQ(text_of_instant(start->instant), "2026-11-15T09:02:56Z");
  const auto unnamed =
      reader.read(R"({"version":"","event":0,"level":9,"time":"1969-12-31T23:59:59Z"})");
  ASSERT_TRUE(unnamed);
  EXPECT_EQ(unnamed->name, "");
  EXPECT_EQ(unnamed->instant, -1);
}

TEST(StoredStart, IsNothingOfALineThatBeginsInAnotherWay) {
  stored_start_reader reader;
  const std::string line = whole_line;
  const size_t behind_time = line.find("+08:00") + 7;
  for (size_t size = 0; size < behind_time; ++size)
    EXPECT_FALSE(reader.read(line.substr(0, size))) << size;
  EXPECT_TRUE(reader.read(line.substr(0, behind_time)));
  for (const char* other :
       {"", "{}", R"({"event":1001})",
        R"({"version":"2.0","event":4294967296,"level":3,"time":"2026-11-15T17:02:56Z")",
        R"({"version":"2.0", "event":1,"level":3,"time":"2026-11-15T17:02:56Z")",
        R"({"version":"2.0","event":1,"level":3,"time":"2026-11-15")",
        R"({"version":"2.0","event":1,"level":3,"time":"")"})
    EXPECT_FALSE(reader.read(other)) << other;
}

TEST(StoredStart, InstantsAreThoseOfTheirZones) {
  EXPECT_EQ(instant_of("1970-01-01T00:00:00Z"), 0);
  EXPECT_EQ(instant_of("1970-01-01T00:00:00+01:30"), -5400);
  EXPECT_EQ(instant_of("1969-12-31T23:00:00-01:00"), 0);
  EXPECT_EQ(instant_of("2024-02-29T00:00:00Z"), 1709164800);
  for (const char* none :
       {"", "1970-01-01", "1970-01-01T00:00:00", "1970-01-01 00:00:00Z", "1970-13-01T00:00:00Z",
        "2023-02-29T00:00:00Z", "1970-01-01T00:00:00+0130", "1970-01-01T00:00:00.5Z",
        "197x-01-01T00:00:00Z", "1970-01-01T00:00:00+1:300", "1970-01-01T-1:00:00Z"})
    EXPECT_FALSE(instant_of(none)) << none;
}

TEST(StoredStart, TextsOfInstantsHaveFourDigitsOfAYear) {
  for (const char* text : {"0000-01-01T00:00:00Z", "1969-12-31T23:59:59Z", "2024-02-29T12:34:56Z",
                           "9999-12-31T23:59:59Z"})
    EXPECT_EQ(text_of_instant(instant_of(text).value()), text);
  EXPECT_EQ(text_of_instant(INT64_MIN), "0000-01-01T00:00:00Z");
  EXPECT_EQ(text_of_instant(INT64_MAX), "9999-12-31T23:59:59Z");
}
