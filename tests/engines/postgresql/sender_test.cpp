#include "engines/postgresql/sender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engines/postgresql/engine.h"
#include "tests/engines/postgresql/database_server.h"
#include "tests/engines/postgresql/shipped_batch.h"

static std::string stored_texts(const database_server& server) {
  return server.sql("select line, record from kplog.record order by host, segment, line, digest");
}

static std::string as_rows(const shipped_segment& segment) {
  std::string rows;
  for (size_t i = 0; i < segment.texts().size(); ++i)
    rows += std::to_string(i + 1) + "|" + segment.texts()[i] + "\n";
  return rows;
}

TEST(PostgresqlSender, StoresEachRecordOnceAndKeepsThePositionBehindIt) {
  const database_server server;
  postgresql_engine.create(server.options());
  postgresql_engine.create(server.options());  // changes nothing
  // What it runs is what is printed.
  ASSERT_EQ(server.sql("create database by_hand"), "");
  EXPECT_EQ(server.sql(postgresql_engine.schema({}), "postgres", "by_hand"), "");
  EXPECT_EQ(server.sql("select version from kplog.version", "postgres", "by_hand"), "1\n");

  shipped_segment segment;
  segment.add_numbers(0, 10);
  const auto engine = postgresql_engine.open(server.options());
  EXPECT_TRUE(engine->positions(segment.journal())->empty());
  engine->offer(segment.kit());
  EXPECT_EQ(engine->store(segment.batch(0, 4)).known, 0);
  EXPECT_EQ(engine->store(segment.batch(4, 10)).known, 0);
  EXPECT_EQ(stored_texts(server), as_rows(segment));

  // Another sender, which knows nothing of the first.
  const auto other = postgresql_engine.open(server.options());
  const std::vector<segment_position> positions = other->positions(segment.journal()).value();
  ASSERT_EQ(positions.size(), 1);
  EXPECT_EQ(positions[0].segment, "shop.20261115.0001.jsonl");
  EXPECT_EQ(positions[0].first, segment.position(1).extent.digest);
  EXPECT_EQ(positions[0].extent, segment.position(10).extent);
  EXPECT_EQ(other->store(segment.batch(0, 7)).known, 7);
  EXPECT_EQ(other->store(segment.batch(7, 10)).known, 3);
  EXPECT_EQ(stored_texts(server), as_rows(segment));
}
