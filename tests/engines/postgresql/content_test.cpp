// What records hold comes back as it was, and comes to SQL as data alone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "engines/postgresql/copy_rows.h"
#include "engines/postgresql/engine.h"
#include "tests/engines/postgresql/database_server.h"
#include "tests/engines/postgresql/shipped_batch.h"

TEST(PostgresqlContent, ComesBackAsItWas) {
  const database_server server;
  postgresql_engine.create(server.options());
  const std::string hostile = "'; drop schema kplog cascade; --\\\"{}$1%s\t";
  shipped_segment segment(hostile, {hostile + "host", "/" + hostile});
  segment.add(R"({"b":1,"a":-0.0,"a":1E2,"x":"\u0000\ud800"})");
  segment.add(hostile).add("\\N").add("\\.").add("\t\r\b\v\f\x1b\x7f").add("");
  segment.add("\xE2\x80\xA8\xF0\x9F\x92\xA9\xEF\xBF\xBF\xF4\x8F\xBF\xBF");
  segment.add(std::string(16 * 1024 * 1024, 'x')).add("behind it");
  segment.add("year 0", 0, -62167219200).add("last", 4294967295, 253402300799);
  segment.add("offset", 1, -62167219200 - 18 * 3600);
  segment.add("far", 1, std::numeric_limits<int64_t>::max());
  segment.add("far back", 1, std::numeric_limits<int64_t>::min());
  segment.use_kit(hostile);
  EXPECT_EQ(postgresql_engine.open(server.options())->store(segment.all()).known, 0);
  EXPECT_EQ(postgresql_engine.open(server.options())->store(segment.all()).known, 14);

  const auto archive =
      postgresql_engine.ask(server.options(), {.hosts = {hostile + "host"}, .until = std::nullopt});
  archived_record record;
  for (size_t i = 0; i < segment.texts().size(); ++i) {
    ASSERT_TRUE(archive->next(record, std::chrono::milliseconds(0)));
    EXPECT_TRUE(record.text == segment.texts()[i]) << i;
    EXPECT_EQ(record.line, i + 1);
    EXPECT_EQ(record.segment, hostile);
    EXPECT_EQ(record.journal, segment.journal());
  }
  EXPECT_FALSE(archive->next(record, std::chrono::milliseconds(0)));
  EXPECT_EQ(archive->kits().at(0).kit.bytes, hostile);
  EXPECT_EQ(server.sql("set timezone = 'UTC'; select event, time from kplog.record where line > 9"
                       " order by line"),
            "0|0001-01-01 00:00:00+00 BC\n4294967295|9999-12-31 23:59:59+00\n"
            "1|0002-12-31 06:00:00+00 BC\n1|\n1|\n");
}

TEST(PostgresqlContent, HasNamesThatAnIndexHolds) {
  const database_server server;
  postgresql_engine.create(server.options());
  const auto stored = [&](size_t size) {
    std::mt19937 random(7);
    std::string host;  // that does not compress
    while (host.size() < size) host += static_cast<char>(' ' + random() % 90);
    shipped_segment segment("shop.20261115.0001.jsonl", {host, "/shop"});
    segment.add_numbers(0, 2);
    try {
      postgresql_engine.open(server.options())->store(segment.all());
    } catch (const engine_error& error) {
      EXPECT_EQ(std::string(error.what()).rfind(server.options().address, 0), 0U) << error.what();
      return false;
    }
    return true;
  };
  EXPECT_TRUE(stored(2'600));
  EXPECT_FALSE(stored(3'000));
}

TEST(PostgresqlContent, HasTheMomentsThatADatabaseCanHold) {
  EXPECT_EQ(pg_moment(946684800), 0);
  EXPECT_EQ(pg_moment(946684799), -1'000'000);
  EXPECT_EQ(pg_moment(-210866803200), -211813488000000000);
  EXPECT_EQ(pg_moment(-210866803201), std::nullopt);
  EXPECT_EQ(pg_moment(9224318015999), 9223371331199000000);
  EXPECT_EQ(pg_moment(9224318016000), std::nullopt);
}
