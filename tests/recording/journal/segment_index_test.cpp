#include "recording/journal/segment_index.h"

#include <gtest/gtest.h>

static std::string record(uint32_t event, const std::string& name, const std::string& time) {
  return "{\"version\":\"2.0\",\"event\":" + std::to_string(event) +
         (name.empty() ? "" : ",\"name\":\"" + name + "\"") + ",\"level\":3,\"time\":\"" + time +
         "\",\"attributes\":{}}\n";
}

static segment_index index_of(const std::string& lines) {
  segment_scan scan;
  scan.take(lines);
  return scan.index();
}

static const std::string some_records = record(7, "TEA", "2026-11-15T17:02:56+08:00") +
                                        record(7, "TEA", "2026-11-15T17:02:50Z") +
                                        record(9, "", "2026-11-15T00:00:00+08:00");

TEST(SegmentIndex, SaysWhatIsInTheSegment) {
  segment_index index = index_of(some_records + "no record\n" + "unfinished");
  index.file = "shop.20261115.0001.jsonl";
  index.size = some_records.size() + 10;
  EXPECT_EQ(
      text_of(index),
      R"({"journal_index":1,"segment":"shop.20261115.0001.jsonl","size":)" +
          std::to_string(index.size) + R"(,"lines":)" + std::to_string(index.size) +
          R"(,"records":3,"others":2,"first":"2026-11-14T16:00:00Z","last":"2026-11-15T17:02:50Z",)"
          R"("events":[{"event":7,"name":"TEA","records":2},{"event":9,"records":1}],"sum":")" +
          text_of(index).substr(text_of(index).size() - 19));
}

TEST(SegmentIndex, IsReadAsItWasWritten) {
  for (const std::string& lines : {some_records, std::string(), std::string("x\n"),
                                   record(1, R"(a\"b\\\u001B\n)", "0000-01-01T00:00:00Z") +
                                       record(1, "other", "9999-12-31T23:59:59Z")}) {
    segment_index index = index_of(lines);
    index.file = "shop.20261115.0001.jsonl.zst";
    index.size = 4711;
    const auto read = segment_index_of(text_of(index));
    ASSERT_TRUE(read) << lines;
    EXPECT_EQ(text_of(*read), text_of(index));
    EXPECT_EQ(read->events, index.events);
    EXPECT_TRUE(read->fits("shop.20261115.0001.jsonl.zst", 4711));
    EXPECT_FALSE(read->fits("shop.20261115.0001.jsonl.zst", 4712));
    EXPECT_FALSE(read->fits("shop.20261115.0001.jsonl", 4711));
  }
}

TEST(SegmentIndex, ThatIsDamagedIsNone) {
  const std::string text = text_of(index_of(some_records));
  ASSERT_TRUE(segment_index_of(text));
  for (size_t at = 0; at < text.size(); ++at) {
    std::string damaged = text;
    damaged[at] = static_cast<char>(damaged[at] ^ 1);
    EXPECT_FALSE(segment_index_of(damaged)) << at;
    EXPECT_FALSE(segment_index_of(text.substr(0, at))) << at;
  }
  EXPECT_FALSE(segment_index_of(text + text));
  EXPECT_FALSE(segment_index_of(std::string(1000, '\0')));
}

TEST(SegmentIndex, IsTheSameHoweverTheBytesCome) {
  const std::string whole = text_of(index_of(some_records));
  for (size_t part = 1; part <= some_records.size(); ++part) {
    segment_scan scan;
    for (size_t at = 0; at < some_records.size(); at += part)
      scan.take(std::string_view(some_records).substr(at, part));
    EXPECT_EQ(text_of(scan.index()), whole) << part;
  }
}

// Whoever looks for anything is to see what is there: a record, perhaps, that somebody cut.
TEST(SegmentIndex, ALineWithoutAnEndIsOneOfTheOthers) {
  segment_scan scan;
  scan.take(some_records.substr(0, some_records.size() - 1));
  EXPECT_EQ(scan.index().records, 2u);
  EXPECT_EQ(scan.index().others, 1u);
  scan.take("\n");
  EXPECT_EQ(text_of(scan.index()), text_of(index_of(some_records)));
}

TEST(SegmentIndex, AnEndlessLineIsNotHeld) {
  const std::string part(size_t{1} << 20, '0');
  segment_scan scan;
  scan.take(R"({"version":"1.0","event":7)");
  for (int i = 0; i < 40; ++i) scan.take(part);
  EXPECT_EQ(scan.index().others, 1u);
  scan.take("\n" + some_records);
  EXPECT_EQ(scan.index().records, 3u);
  EXPECT_EQ(scan.index().others, 1u);
  EXPECT_EQ(scan.index().lines, 26 + 40 * part.size() + 1 + some_records.size());
}

TEST(SegmentIndex, GoesOnBehindWhatIsKnown) {
  const size_t first = some_records.find('\n') + 1;
  const auto known = segment_index_of(text_of(index_of(some_records.substr(0, first))));
  segment_scan scan(known.value());
  scan.take(some_records.substr(first));
  EXPECT_EQ(text_of(scan.index()), text_of(index_of(some_records)));
}
