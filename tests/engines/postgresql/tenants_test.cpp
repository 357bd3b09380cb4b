// Several tenants in one database: none reads, writes or holds up what is another's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engines/postgresql/engine.h"
#include "tests/engines/postgresql/database_server.h"
#include "tests/engines/postgresql/shipped_batch.h"

using testing::HasSubstr;
using testing::StartsWith;

static std::vector<std::string> texts_of(const engine_options& options) {
  const auto archive = postgresql_engine.ask(options, {});
  std::vector<std::string> texts;
  archived_record record;
  while (archive->next(record, std::chrono::milliseconds(0))) texts.emplace_back(record.text);
  return texts;
}

TEST(PostgresqlTenants, HaveTheSameNamesAndDifferentRecords) {
  const database_server server;
  postgresql_engine.create(server.options());
  ASSERT_EQ(
      server.sql("create role red login; create role blue login; create role several login; "
                 "create role plain"
                 " login; grant kplog_ship, kplog_read to red, blue, several, plain;"
                 "insert into kplog.member values ('red', 'red', true), ('blue', 'blue', true), "
                 "('several', 'red', false),"
                 " ('several', 'blue', false)"),
      "");
  std::map<std::string, std::string> marks = {
      {"red", "a red line"}, {"blue", "a blue line"}, {"plain", "a plain line"}};
  for (const auto& [user, text] : marks) {
    shipped_segment segment;
    segment.add("the same line");
    segment.add(text);
    segment.use_kit("the same kit");
    const auto engine = postgresql_engine.open(server.options(user));
    EXPECT_TRUE(engine->positions(segment.journal())->empty()) << user;
    EXPECT_EQ(engine->store(segment.all()).known, 0) << user;
    engine->tell(segment.journal(), {.waiting_bytes = text.size()});
  }
  for (const auto& [user, text] : marks) {
    EXPECT_THAT(texts_of(server.options(user)), testing::ElementsAre("the same line", text));
    const auto view = postgresql_engine.view(server.options(user));
    ASSERT_EQ(view->rows().size(), 1);
    EXPECT_EQ(view->rows()[0].records, 2);
    EXPECT_EQ(view->rows()[0].state.waiting_bytes, text.size());
    EXPECT_EQ(postgresql_engine.ask(server.options(user), {})->kits().size(), 1);
  }
  // A user of several says which; so does the owner of all, whose own is "default".
  engine_options several = server.options("several");
  EXPECT_THROW(texts_of(several), engine_error);
  several.tenant = "blue";
  EXPECT_EQ(texts_of(several).at(1), "a blue line");
  several.tenant = "default";
  EXPECT_THROW(texts_of(several), engine_error);
  engine_options red = server.options("red");
  red.tenant = "blue'; reset role; --";
  try {
    texts_of(red);
    ADD_FAILURE() << "a tenant is taken that is another's";
  } catch (const engine_error& error) {
    EXPECT_THAT(error.what(),
                HasSubstr("red is no member of the tenant \"blue'; reset role; --\""));
  }
  EXPECT_EQ(texts_of(server.options()).at(1), "a plain line");
}

TEST(PostgresqlTenants, CannotGetAtEachOtherByHand) {
  const database_server server;
  postgresql_engine.create(server.options());
  ASSERT_EQ(
      server.sql(
          "create role red login; create role blue login; create role reader login;"
          "grant kplog_ship to red, blue; grant kplog_read to reader, red;"
          "insert into kplog.member values ('red', 'red'), ('blue', 'blue'), ('reader', 'red')"),
      "");
  shipped_segment segment;
  segment.add_numbers(0, 3);
  postgresql_engine.open(server.options("red"))->store(segment.all());
  postgresql_engine.open(server.options("blue"))->store(segment.all());
  const std::string before = server.sql("select * from kplog.segment order by id");
  const std::string blue_segment = server.sql("select id from kplog.segment where tenant = 'blue'");
  const std::string blue_id = blue_segment.substr(0, blue_segment.size() - 1);
  const std::string red_segment = server.sql("select id from kplog.segment where tenant = 'red'");
  const std::string red_id = red_segment.substr(0, red_segment.size() - 1);

  const auto as_red = [&](const std::string& statements) { return server.sql(statements, "red"); };
  const std::string insert =
      "insert into kplog.record (segment, line, digest, part, batch, level, tenant, host, record) ";
  const std::string denied = "ERROR:  permission denied";
  const std::string against = "ERROR:  new row violates row-level security policy";
  // As another tenant, and into another's segment.
  for (const char* setting : {"'blue'", "'default'"})
    EXPECT_THAT(as_red("set kplog.tenant = " + std::string(setting) +
                       "; select count(*) from kplog.record"),
                StartsWith("ERROR:  red is no member of the tenant"));
  EXPECT_THAT(as_red("set role blue"), StartsWith(denied));
  EXPECT_THAT(as_red("set session authorization blue"), StartsWith(denied));
  for (const char* tenant : {"red", "blue", "default"})
    EXPECT_THAT(as_red("set kplog.segment = " + blue_id + "; " + insert + "values (" + blue_id +
                       ", 9, 9, '2026-11-15', 9, 3, '" + tenant + "', 'host1', 'mine')"),
                StartsWith(against));
  EXPECT_THAT(as_red("set kplog.segment = " + red_id + "; " + insert + "values (" + blue_id +
                     ", 9, 9, '2026-11-15', 9, 3, 'red', 'host1', 'mine')"),
              StartsWith(against));
  EXPECT_THAT(
      as_red(insert + "values (" + red_id + ", 9, 9, '2026-11-15', 9, 3, 'red', 'host1', 'mine')"),
      StartsWith(against));
  // Past the policies of the table.
  const std::string part = server.sql("select name from kplog.part where part < 'infinity'");
  for (const std::string& table : {part.substr(0, part.find('\n')), std::string("record_other")})
    for (const char* statement : {"select * from kplog.", "delete from kplog.", "truncate kplog."})
      EXPECT_THAT(as_red(statement + table), StartsWith(denied)) << statement << table;
  for (const char* statement : {"update kplog.record set record = ''",
                                "delete from kplog.record",
                                "truncate kplog.record",
                                "delete from kplog.segment",
                                "delete from kplog.journal",
                                "update kplog.content set hash = ''",
                                "update kplog.segment set tenant = 'blue'",
                                "update kplog.segment set is_pruned = true",
                                "select * from kplog.member",
                                "insert into kplog.member values ('red', 'blue')",
                                "select * from kplog.setting",
                                "update kplog.version set version = 7",
                                "select kplog.make_part('2030-01-01')",
                                "select kplog.prune('2030-01-01')",
                                "create table kplog.mine ()",
                                "drop schema kplog",
                                "copy kplog.record to '/tmp/x'",
                                "begin; lock kplog.journal",
                                "begin; lock kplog.segment",
                                "begin; lock kplog.record",
                                "begin; lock kplog.content"})
    EXPECT_THAT(as_red(statement),
                testing::MatchesRegex("ERROR:  (permission denied|must be (owner|superuser)).*"))
        << statement;
  // What is another's is not there.
  EXPECT_EQ(as_red("select distinct tenant from kplog.segment"), "red\n");
  EXPECT_EQ(as_red("with u as (update kplog.segment set lines = 0 where tenant = 'blue' or id = " +
                   blue_id + " returning 1) select count(*) from u"),
            "0\n");
  EXPECT_EQ(as_red("select count(*) from kplog.lines_with('2026-11-15', " + blue_id +
                   ", array['{\"NUMBER\":1}'::jsonb])"),
            "0\n");
  EXPECT_EQ(server.sql("select distinct tenant from kplog.record", "reader"), "red\n");
  EXPECT_THAT(server.sql("set kplog.segment = " + red_id + ";" + insert + "values (" + red_id +
                             ", 9, 9, '2026-11-15', 9, 3, 'red', 'host1', 'mine')",
                         "reader"),
              StartsWith(denied));
  EXPECT_THAT(server.sql("select kplog.begin_segment('a', 'b', 'c', 1, '2026-11-15')", "reader"),
              StartsWith(denied));
  // Functions and operators of the session's own, under the names of the system's.
  const std::string traps =
      "create function pg_temp.leak(bigint, text) returns boolean language plpgsql cost 0.0001 as"
      " $$ begin raise warning '% %', $1, $2; return true; end $$;"
      "create function pg_temp.hashtextextended(text, bigint) returns bigint language plpgsql as"
      " $$ begin raise exception 'trapped as %', current_user; end $$;"
      "create function pg_temp.format(text, text) returns text language plpgsql as"
      " $$ begin raise exception 'trapped as %', current_user; end $$;"
      "create temp table member (role name, tenant text, is_own boolean);"
      "insert into member values ('red', 'blue', true);"
      "set search_path = pg_temp, kplog, pg_catalog;";
  EXPECT_EQ(as_red(traps + "select kplog.tenant()"), "red\n");
  EXPECT_EQ(as_red(traps + "select distinct tenant from kplog.record where pg_temp.leak(line,"
                           " tenant) and tenant <> 'red'"),
            "");
  EXPECT_EQ(as_red(traps + "select is_new_day from kplog.begin_segment('host2', '/shop',"
                           " 'shop', 1, (now() at time zone 'UTC')::date)"),
            "t\n");
  EXPECT_EQ(server.sql("select * from kplog.segment where host = 'host1' order by id"), before);
  EXPECT_EQ(server.sql("select tenant, count(*) from kplog.record group by 1 order by 1"),
            "blue|3\nred|3\n");
  // Nor are they held up by a segment that another begins, of a day that is there.
  const database_session standing(server, "red");
  EXPECT_EQ(standing
                .sql("begin; select is_new_day from kplog.begin_segment('h', 'j', "
                     "'shop.20261115.0007.jsonl', 1, '2026-11-15')")
                .substr(0, 2),
            "f\n");
  EXPECT_EQ(server.sql("set lock_timeout = '5s'; select is_new_day from kplog.begin_segment('h', "
                       "'j', 'shop.20261115.0008.jsonl', 1, '2026-11-15')",
                       "blue"),
            "f\n");
}
