// Partitions of days: which there are, when they are finished and removed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "engines/postgresql/engine.h"
#include "engines/postgresql/segment_day.h"
#include "tests/engines/postgresql/database_server.h"
#include "tests/engines/postgresql/shipped_batch.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A day so many from today, by the server's clock: "20261115".
static std::string day_from_now(const database_server& server, int days) {
  const std::string text = server.sql("select to_char((now() at time zone 'UTC')::date + " +
                                      std::to_string(days) + ", 'YYYYMMDD')");
  return text.substr(0, text.size() - 1);
}

static store_result store_day(const engine_options& options, const std::string& day,
                              const std::string& host = "host1") {
  shipped_segment segment("shop." + day + ".0001.jsonl", {host, "/shop"});
  segment.add_numbers(0, 2, 7).add_numbers(2, 1, 8).add("of no definitions", std::nullopt);
  return postgresql_engine.open(options)->store(segment.all());
}

static std::vector<std::string> parts(const database_server& server) {
  const std::string text = server.sql(
      "select tableoid::regclass::text || ' ' || count(*) from kplog.record group by tableoid"
      " order by 1");
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
    lines.push_back(text.substr(at, text.find('\n', at) - at));
  return lines;
}

// "2026-11-15" of "20261115".
static std::string dashed(const std::string& day) {
  return day.substr(0, 4) + "-" + day.substr(4, 2) + "-" + day.substr(6);
}

// The schema, and a user with these roles.
static engine_options made_for_logs(const database_server& server, const std::string& roles) {
  postgresql_engine.create(server.options());
  EXPECT_EQ(server.sql("create role logs login; grant " + roles + " to logs"), "");
  return server.options("logs");
}

TEST(PostgresqlDays, HavePartitionsNearToTheClockOfTheServer) {
  const database_server server;
  const engine_options logs = made_for_logs(server, "kplog_ship");
  const std::string long_ago = day_from_now(server, -300);
  const std::string today = day_from_now(server, 0);
  const std::string soon = day_from_now(server, 2);
  const std::string later = day_from_now(server, 4);
  for (const std::string& day : {long_ago, today, soon, later, std::string("00000101"),
                                 std::string("19700101"), std::string("99991231")}) {
    EXPECT_EQ(store_day(logs, day).known, 0) << day;
    EXPECT_EQ(store_day(logs, day).known, 4) << day;
  }
  // One that has no day in its name.
  shipped_segment odd("no day", {"host1", "/shop"});
  postgresql_engine.open(logs)->store(odd.add("text").all());
  EXPECT_THAT(parts(server),
              ElementsAre("kplog.record_" + long_ago + " 4", "kplog.record_" + today + " 4",
                          "kplog.record_" + soon + " 4", "kplog.record_other 17"));

  // The day comes near: what is there stays where it is, what is new goes to its own partition.
  ASSERT_EQ(server.sql("create or replace function kplog.begin_segment_then() returns void language"
                       " sql as 'select kplog.make_part(''" +
                       later + "'')'; select kplog.begin_segment_then()"),
            "\n");
  EXPECT_EQ(store_day(logs, later).known, 4);

  const auto view = postgresql_engine.view(server.options());
  const day_counts counts = view->counts({"host1", "/shop"}, today);
  EXPECT_EQ(counts, (day_counts{{{today, 0}, 1},
                                {{today, 7}, 2},
                                {{today, 8}, 1},
                                {{soon, 0}, 1},
                                {{soon, 7}, 2},
                                {{soon, 8}, 1},
                                {{later, 0}, 1},
                                {{later, 7}, 2},
                                {{later, 8}, 1},
                                {{"99991231", 0}, 1},
                                {{"99991231", 7}, 2},
                                {{"99991231", 8}, 1}}));
  EXPECT_EQ(view->counts({"host1", "/shop"}, "").size(), 22);
  EXPECT_TRUE(view->counts({"host2", "/shop"}, "").empty());
  EXPECT_THROW(view->counts({"host1", "/shop"}, "20261315"), engine_error);
}

TEST(PostgresqlDays, AreFinishedWhenTheyAreDone) {
  const database_server server;
  const engine_options logs = made_for_logs(server, "kplog_ship");
  const std::string done = day_from_now(server, -2);
  const std::string today = day_from_now(server, 0);
  const auto indexed = [&] {
    return server.sql(
        "select tablename from pg_indexes where schemaname = 'kplog' and indexdef"
        " like '%USING gin (kplog.attributes(record)%' order by 1");
  };
  store_day(logs, done);
  // Nothing that jsonb refuses stops the index, whoever wrote it.
  shipped_segment odd("shop." + done + ".0001.jsonl", {"odd", "/shop"});
  odd.add("no JSON").add("[]").add("{}").add(R"({"attributes":{"A":"\u0000"}})");
  odd.add(R"({"attributes":{"A":"\ud800"}})").add(R"({"attributes":{"A":1e400000}})");
  odd.add(std::string(100'000, '[')).add(R"({"attributes":{"A":)" + std::string(9000, '9') + "}}");
  postgresql_engine.open(logs)->store(odd.all());
  EXPECT_EQ(server.sql("select kplog.finish_day()"), "\n");
  EXPECT_EQ(indexed(), "");
  ASSERT_EQ(server.sql("update kplog.part set made = made - interval '13 hours'"), "");
  // The first sender of a new day begins with it, and does not wait for it.
  {
    const auto engine = postgresql_engine.open(logs);
    shipped_segment segment("shop." + today + ".0001.jsonl");
    engine->store(segment.add_numbers(0, 10).all());
    while (indexed().empty()) engine->store(segment.all());
  }
  EXPECT_EQ(indexed(), "record_" + done + "\n");
  EXPECT_EQ(server.sql("select part from kplog.part where is_finished"),
            server.sql("select '" + done + "'::date"));
  EXPECT_EQ(store_day(logs, done, "late").known, 0);
  EXPECT_EQ(server.sql("select count(*) from kplog.record where kplog.attributes(record) @>"
                       " '\"unreadable\"'"),
            "7\n");

  // Or live, from the next day on.
  engine_options live = server.options();
  live.has_live_index = true;
  postgresql_engine.create(live);
  const std::string tomorrow = day_from_now(server, 1);
  store_day(logs, tomorrow);
  EXPECT_EQ(indexed(), "record_" + done + "\nrecord_" + tomorrow + "\n");
}

TEST(PostgresqlDays, MayBeFinishedWhileTheyArePruned) {
  const database_server server;
  postgresql_engine.create(server.options());
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(server.sql("update kplog.setting set pruned_before = null;"
                         "do $$ begin perform kplog.make_part(current_date - n)"
                         " from generate_series(5, 34) n; end $$;"
                         "update kplog.part set made = made - interval '13 hours'"),
              "");
    std::vector<std::jthread> finishing;
    for (int i = 0; i < 2; ++i)
      finishing.emplace_back([&server] {
        std::string day;
        do {
          day = server.sql("select kplog.finish_day()");
          EXPECT_FALSE(day.starts_with("ERROR")) << day;
        } while (day.size() > 1 && !day.starts_with("ERROR"));
      });
    EXPECT_EQ(server.sql("select * from kplog.prune(current_date - 4)"), "");
  }
}

TEST(PostgresqlDays, ThatWerePrunedStayPruned) {
  const database_server server;
  const engine_options logs = made_for_logs(server, "kplog_ship, kplog_read");
  const std::string old_day = day_from_now(server, -3);
  const std::string kept = day_from_now(server, -1);
  for (const std::string& day : {std::string("19991231"), old_day, kept}) store_day(logs, day);
  store_day(logs, old_day, "host2");

  EXPECT_THROW(postgresql_engine.view(logs)->prune(kept), engine_error);
  const auto view = postgresql_engine.view(server.options());
  // Nothing is removed where somebody uses what is there, and not let go in time.
  {
    const database_session reading(server);
    reading.sql("begin; select count(*) from kplog.record");
    ASSERT_EQ(server.sql("alter role postgres set lock_timeout = '100ms'"), "");
    EXPECT_THROW(postgresql_engine.view(server.options())->prune(kept), engine_error);
    ASSERT_EQ(server.sql("alter role postgres reset lock_timeout"), "");
    EXPECT_EQ(parts(server).size(), 3);
    EXPECT_EQ(server.sql("select count(*) from kplog.segment where is_pruned"), "0\n");
  }
  for (const char* never : {"infinity", "9999-12-31", "tomorrow"})
    EXPECT_THAT(server.sql("select kplog.prune(date '" + std::string(never) + "' + 1)"),
                HasSubstr(" are not over: what is sent then would be removed, too"))
        << never;
  EXPECT_THAT(server.sql("select kplog.prune(null)"), HasSubstr("days before null are not over"));
  // Who may do that alone leaves it to senders to finish days.
  ASSERT_EQ(server.sql("create role pruner login; grant kplog_read to pruner;"
                       "grant execute on function kplog.prune(date) to pruner"),
            "");
  EXPECT_THAT(postgresql_engine.view(server.options("pruner"))->prune(kept),
              ElementsAre("1999-12-31: 4 records", dashed(old_day) + ": 8 records"));
  EXPECT_THAT(view->prune(kept), IsEmpty());
  EXPECT_THAT(parts(server), ElementsAre("kplog.record_" + kept + " 4"));
  // Again, those of a machine that was not there, and behind the end of what there was.
  EXPECT_EQ(store_day(logs, old_day).pruned, 4);
  EXPECT_EQ(store_day(logs, old_day, "host3").pruned, 4);
  EXPECT_EQ(store_day(logs, "19991231").pruned, 4);
  EXPECT_EQ(store_day(logs, kept).known, 4);
  EXPECT_THAT(parts(server), ElementsAre("kplog.record_" + kept + " 4"));
  const auto engine = postgresql_engine.open(logs);
  EXPECT_EQ(engine->positions({"host3", "/shop"})->at(0).extent.lines, 4);
  engine->tell({"host1", "/shop"},
               {.waiting_bytes = 77, .given_up = 5, .is_given_up_exact = false});
  const std::vector<fleet_row> rows = view->rows();
  ASSERT_EQ(rows.size(), 3);
  EXPECT_EQ(rows[0].records, 4);
  EXPECT_EQ(rows[0].state.waiting_bytes, 77);
  EXPECT_EQ(rows[0].state.given_up, 5);
  EXPECT_FALSE(rows[0].state.is_given_up_exact);
  EXPECT_TRUE(rows[0].told);
  EXPECT_EQ(rows[0].newest, 1794733376 + 2);
  EXPECT_EQ(rows[2].journal.host, "host3");
  EXPECT_EQ(rows[2].records, 0);
  EXPECT_FALSE(rows[2].told);
  // A sender may say what it likes of its own.
  store_day(logs, kept, "host4");
  ASSERT_EQ(server.sql("update kplog.segment set records = 9223372036854775807", "logs"), "");
  EXPECT_THAT(view->prune(day_from_now(server, 0)),
              ElementsAre(dashed(kept) + ": 9223372036854775807 records"));
}

TEST(PostgresqlSegmentDay, IsReadOfItsName) {
  EXPECT_EQ(pg_day_text(pg_segment_day("shop.20261115.0001.jsonl")), "20261115");
  EXPECT_EQ(pg_day_text(pg_segment_day("a.20200101.0001.20261115.9999.jsonl")), "20261115");
  EXPECT_EQ(pg_day_text(pg_segment_day(".00000229.0001.jsonl")), "00000229");
  EXPECT_EQ(pg_segment_day("shop.20000101.0001.jsonl"), 0);
  for (const char* name : {"", "jsonl", "shop.20261301.0001.jsonl", "shop.2026x115.0001.jsonl"})
    EXPECT_EQ(pg_day_text(pg_segment_day(name)), "00000101") << name;
}
