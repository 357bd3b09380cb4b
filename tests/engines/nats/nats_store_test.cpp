#include <gtest/gtest.h>

#include "engines/nats/engine.h"
#include "engines/nats/stream_reader.h"
#include "tests/engines/nats/made_journal.h"
#include "tests/engines/nats/nats_servers.h"

TEST(NatsStore, KeepsPositionsOfSegmentsBehindTheirRecords) {
  const nats_servers servers;
  const engine_options options = servers.options();
  const journal_identity journal{"web1.example", "/var/log/shop/shop"};
  made_segment segment("shop.20261115.0001.jsonl");
  for (int i = 0; i < 300; ++i) segment.add("{\"n\":" + std::to_string(i) + "}", 1001 + i % 3, 3);
  segment.add_blank_line();
  const auto engine = nats_engine.open(options);
  EXPECT_EQ(engine->positions(journal)->size(), 0U);
  EXPECT_EQ(store_lines(*engine, journal, segment, 0, 200).known, 0U);
  EXPECT_EQ(store_lines(*engine, journal, segment, 200, 301).known, 0U);
  EXPECT_EQ(store_lines(*engine, journal, segment, 0, 200).known, 200U);
  const auto other = nats_engine.open(options);
  const auto positions = *other->positions(journal);
  ASSERT_EQ(positions.size(), 1U);
  EXPECT_EQ(positions[0].segment, segment.name());
  EXPECT_EQ(positions[0].extent, segment.position(200).extent);
  EXPECT_EQ(positions[0].first, segment.position(0).first);
}
