#include <gtest/gtest.h>

#include <algorithm>

#include "engines/nats/engine.h"
#include "engines/nats/stream_reader.h"
#include "tests/engines/nats/made_journal.h"
#include "tests/engines/nats/nats_servers.h"

// A text that does not compress.
static std::string noise(size_t size, uint64_t seed) {
  std::string text;
  while (text.size() < size) {
    seed = seed * 6364136223846793005 + 1442695040888963407;
    text += static_cast<char>(' ' + (seed >> 57) % 90);
  }
  return text;
}

static std::vector<placed_text> asked(const engine_options& options, const archive_query& query) {
  return placed_texts(*nats_engine.ask(options, query));
}

static std::vector<placed_text> joined(std::vector<placed_text> one,
                                       const std::vector<placed_text>& other) {
  one.insert(one.end(), other.begin(), other.end());
  return one;
}

TEST(NatsArchive, HandsOutRecordsOnceAndByTheirPlacesHoweverTheyCame) {
  const nats_servers servers;
  const engine_options options = servers.options();
  const journal_identity plain{"web1.example", "/var/log/shop/shop"};
  const journal_identity odd{"a b>*.\x01\xFF%", "/tmp/\xFF/x.*\n"};
  const std::string empty;
  const journal_identity nameless{empty, empty};
  made_segment first("shop.20261115.0001.jsonl");
  for (int i = 0; i < 3000; ++i) {
    first.add("{\"event\":" + std::to_string(1001 + i % 7) + ",\"n\":" + std::to_string(i) + "}",
              1001 + i % 7, i % 10, 1'794'700'000 + i);
    if (i % 500 == 0) first.add_blank_line();
    if (i == 1000) first.add(noise(16'000'000, 7), 1001, 3);
    if (i == 2000) first.add(std::string(3'000'000, 'x') + "\"\\\xE3\x81\x82", 1001, 3);
  }
  made_segment second("shop.20261116.0001.jsonl");
  for (int i = 0; i < 100; ++i) second.add("two " + std::to_string(i), 1001, {});
  made_segment unknown("x.*\n.20261115.0001.jsonl");
  for (int i = 0; i < 100; ++i) unknown.add("odd " + std::to_string(i), {}, {});
  const auto engine = nats_engine.open(options);
  store_lines(*engine, plain, second, 0, 50);
  send_segment(*engine, nameless, unknown, 1000);
  send_segment(*engine, plain, first, 700);
  send_segment(*engine, odd, unknown, 7);
  store_lines(*engine, plain, first, 900, 1900);  // again, cut otherwise
  store_lines(*engine, plain, second, 20, 100);

  const auto all_plain = joined(placed_texts(plain, first), placed_texts(plain, second));
  const auto all =
      joined(joined(placed_texts(nameless, unknown), placed_texts(odd, unknown)), all_plain);
  EXPECT_TRUE(asked(options, {}) == all);
  EXPECT_TRUE(asked(options, {.hosts = {"web1.example"}}) == all_plain);
  EXPECT_TRUE(asked(options, {.hosts = {"web?.ex*"}}) == all_plain);
  EXPECT_TRUE(asked(options, {.hosts = {odd.host, "nobody"}}) == placed_texts(odd, unknown));
  EXPECT_TRUE(asked(options, {.hosts = {""}}) == placed_texts(nameless, unknown));

  // By events and levels; those that are not known may fit.
  const archive_query narrow{.groups = {{.events = {{1002}}}, {.events = {{1003}}}},
                             .hosts = {"*1.example", "a b*"},
                             .lowest_level = 4,
                             .highest_level = 5};
  std::vector<placed_text> fitting = placed_texts(odd, unknown);
  for (const shipped_record& record : first.records())
    if ((record.event == 1002U || record.event == 1003U) &&
        (record.level == 4U || record.level == 5U))
      fitting.emplace_back(plain.host, plain.journal, first.name(), record.line, record.text);
  EXPECT_TRUE(asked(options, narrow) == fitting);
}
