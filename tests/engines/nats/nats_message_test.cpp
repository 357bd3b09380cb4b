#include "engines/nats/message.h"

#include <gtest/gtest.h>

#include "engines/nats/record_joiner.h"
#include "engines/nats/record_scan.h"
#include "recording/text/check_sum.h"

static std::vector<shipped_record> records_of_lines(const std::vector<uint64_t>& lines) {
  std::vector<shipped_record> records;
  for (const uint64_t line : lines)
    records.push_back({.text = "{\"a\":1}",
                       .line = line,
                       .digest = check_sum("{\"a\":1}"),
                       .event = 1,
                       .level = {},
                       .time = {}});
  return records;
}

static std::vector<const shipped_record*> pointers_to(const std::vector<shipped_record>& records) {
  std::vector<const shipped_record*> pointers;
  for (const shipped_record& record : records) pointers.push_back(&record);
  return pointers;
}

TEST(NatsMessage, IsALineOfJsonAndTheRecords) {
  const auto records = records_of_lines({1, 2, 3, 7, 9, 10});
  std::string message;
  write_nats_message(message, {"web1", "/var/log/shop/shop"}, "shop.20261115.0001.jsonl",
                     pointers_to(records));
  EXPECT_EQ(message,
            "{\"kplog\":1,\"host\":\"web1\",\"journal\":\"/var/log/shop/shop\","
            "\"segment\":\"shop.20261115.0001.jsonl\",\"lines\":\"1-3,7,9-10\"}\n"
            "{\"a\":1}\n{\"a\":1}\n{\"a\":1}\n{\"a\":1}\n{\"a\":1}\n{\"a\":1}\n");
  std::vector<uint64_t> lines;
  for_each_piece(message, [&](const record_piece& piece) {
    lines.push_back(piece.place.line);
    EXPECT_EQ(piece.bytes, "{\"a\":1}");
    EXPECT_EQ(piece.place.digest, check_sum("{\"a\":1}"));
    EXPECT_EQ(piece.place.journal.host, "web1");
  });
  EXPECT_EQ(lines, (std::vector<uint64_t>{1, 2, 3, 7, 9, 10}));
  write_nats_message(message, {"h", "j"}, "s",
                     pointers_to(records_of_lines({UINT64_MAX - 1, UINT64_MAX, 0})));
  std::string_view last = message;
  EXPECT_EQ(read_nats_message(last)->lines, (std::vector<uint64_t>{UINT64_MAX - 1, UINT64_MAX, 0}));
  write_nats_message(message, {"\xFF\"", "\n"}, "s", pointers_to(records_of_lines({5})));
  EXPECT_EQ(
      message.substr(0, message.find('\n')),
      "{\"kplog\":1,\"host%\":\"%FF%22\",\"journal\":\"\\n\",\"segment\":\"s\",\"lines\":\"5\"}");
  std::string_view rest = message;
  EXPECT_EQ(read_nats_message(rest)->journal, (journal_identity{"\xFF\"", "\n"}));
  EXPECT_EQ(rest, "{\"a\":1}\n");
}

// Anybody may publish anything under such a subject.
TEST(NatsMessage, OfSomebodyElseIsLeftOut) {
  const std::string begin =
      "{\"kplog\":1,\"host\":\"h\",\"journal\":\"j\",\"segment\":\"s\",\"lines\":";
  for (const std::string& message :
       {std::string(), std::string("hello"), std::string("{}\n"), begin + "\"1\"}",
        begin + "\"\"}\n", begin + "\"3-1\"}\n", begin + "\"1-99999999999\"}\n",
        begin + "\"0-18446744073709551615\"}\n", begin + "\"1,x\"}\n", begin + "1}\n",
        "{\"kplog\":2" + begin.substr(10) + "\"1\"}\n", begin + "\"1\",\"part\":0}\n",
        begin + "\"1-2\",\"part\":0,\"size\":1,\"digest\":\"0\"}\n"}) {
    std::string_view rest = message;
    EXPECT_FALSE(read_nats_message(rest)) << message;
  }
  int pieces = 0;
  for_each_piece(begin + "\"1-3\"}\none\ntwo", [&](const record_piece&) { ++pieces; });
  EXPECT_EQ(pieces, 1);  // those that are whole
}

TEST(NatsMessage, HasAnIdOfAllThatIsInIt) {
  const journal_identity journal{"web1", "/j"};
  const auto records = records_of_lines({1, 2, 3});
  const auto all = pointers_to(records);
  const std::string id = nats_message_id(journal, "s", all, {});
  EXPECT_EQ(nats_message_id(journal, "s", all, {}), id);
  EXPECT_NE(nats_message_id(journal, "s", std::span(all).first(2), {}), id);
  EXPECT_NE(nats_message_id({"web2", "/j"}, "s", all, {}), id);
  EXPECT_NE(nats_message_id({"web1", "/k"}, "s", all, {}), id);
  EXPECT_NE(nats_message_id({"web1/", "j"}, "s", all, {}), id);
  EXPECT_NE(nats_message_id(journal, "t", all, {}), id);
  auto others = records;
  others[2].digest += 1;
  EXPECT_NE(nats_message_id(journal, "s", pointers_to(others), {}), id);
  const nats_part part{.number = 1, .is_last = false, .size = 10, .digest = 0};
  const nats_part other_size{.number = 1, .is_last = false, .size = 11, .digest = 0};
  EXPECT_NE(nats_message_id(journal, "s", all, part), id);
  EXPECT_NE(nats_message_id(journal, "s", all, part),
            nats_message_id(journal, "s", all, other_size));
}
