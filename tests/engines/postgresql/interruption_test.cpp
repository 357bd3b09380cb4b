// Senders that are cut off at any moment: at the end every record is there once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <random>
#include <thread>

#include "engines/postgresql/engine.h"
#include "tests/engines/postgresql/database_server.h"
#include "tests/engines/postgresql/shipped_batch.h"

using testing::HasSubstr;

// As kplog ship does it: goes on behind what is confirmed, and asks again behind an error. Returns
// how many errors there were.
static size_t ship_all(const engine_options& options, const shipped_segment& segment,
                       size_t batch_size) {
  size_t errors = 0;
  size_t at = 0;
  auto engine = postgresql_engine.open(options);
  for (bool is_known = false; !is_known || at < segment.texts().size();) {
    try {
      if (!is_known) {
        at = 0;
        const auto known = engine->positions(segment.journal());
        for (const segment_position& position : known.value())
          if (position.extent.lines <= segment.texts().size() &&
              position.extent == segment.position(position.extent.lines).extent)
            at = position.extent.lines;
        engine->offer(segment.kit());
        is_known = true;
        continue;
      }
      const size_t end = std::min(at + batch_size, segment.texts().size());
      engine->store(segment.batch(at, end));
      at = end;
    } catch (const engine_error&) {
      ++errors;
      is_known = false;
    }
  }
  return errors;
}

static std::string numbers_there(const database_server& server) {
  return server.sql(
      "select host, count(*), count(distinct line), min(line), max(line) from kplog.record"
      " group by 1 order by 1");
}

TEST(PostgresqlInterruption, OfSendersAndServersLeavesEachRecordOnce) {
  database_server server;
  postgresql_engine.create(server.options());
  static constexpr int count = 3000;
  shipped_segment one("shop.20261115.0001.jsonl", {"one", "/shop"});
  shipped_segment other("shop.20261115.0001.jsonl", {"other", "/shop"});
  one.add_numbers(0, count);
  other.add_numbers(0, count);
  std::atomic<size_t> errors = 0;
  std::atomic<int> running = 3;
  const auto send = [&](const shipped_segment& segment) {
    errors += ship_all(server.options(), segment, 20);
    --running;
  };
  // Two of them send the same journal.
  std::thread first(send, std::cref(one));
  std::thread second(send, std::cref(other));
  std::thread third(send, std::cref(other));
  std::mt19937 random(17);
  int ends = 0;
  while (running > 0 && ends < 100) {
    const std::string found = server.sql(
        "select pid from pg_stat_activity where application_name = 'kplog-ship'"
        " order by random() limit 1");
    if (found.empty() || !isdigit(found[0])) continue;
    // Politely, and a crash of the whole server, which is rarer.
    if (++ends % 8 != 0) {
      server.sql("select pg_terminate_backend(" + found + ")");
    } else if (ends <= 40) {
      server.stop(random() % 2 == 0 ? SIGKILL : SIGQUIT);
      server.start();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 30));
  }
  first.join();
  second.join();
  third.join();
  EXPECT_GT(errors, 0);
  EXPECT_EQ(numbers_there(server), "one|3000|3000|1|3000\nother|3000|3000|1|3000\n");
  EXPECT_EQ(server.sql("select host, lines, records from kplog.segment order by 1"),
            "one|3000|3000\nother|3000|3000\n");
}

TEST(PostgresqlInterruption, OfOneOperationLeavesAllOfABatchOrNothing) {
  database_server server;
  postgresql_engine.create(server.options());
  shipped_segment segment;
  segment.add_numbers(0, 6);
  const auto engine = postgresql_engine.open(server.options());
  engine->store(segment.batch(0, 2));

  // What the database refuses in the midst of a batch, as it does where its disk is full.
  server.sql(
      "create function refuse() returns trigger language plpgsql as $$ begin"
      " if new.line = 4 then raise disk_full; end if; return new; end $$;"
      "create trigger refuse before insert on kplog.record for each row"
      " execute function refuse()");
  try {
    engine->store(segment.batch(2, 6));
    ADD_FAILURE() << "it was stored";
  } catch (const engine_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("ERROR:  disk_full, CONTEXT:"));
    EXPECT_THAT(error.what(), HasSubstr(": its disk is full"));
  }
  EXPECT_EQ(server.sql("select count(*) from kplog.record"), "2\n");
  EXPECT_EQ(engine->positions(segment.journal())->at(0).extent, segment.position(2).extent);
  server.sql("drop trigger refuse on kplog.record");
  EXPECT_EQ(engine->store(segment.batch(2, 6)).known, 0);
  EXPECT_EQ(server.sql("select count(*) from kplog.record"), "6\n");

  // The end of a program that waits for another's lock.
  const database_session other(server);
  other.sql("begin; select from kplog.segment for update");
  engine_options options = server.options();
  std::atomic<int> asked = 0;
  options.is_to_end = [&] { return ++asked > 3; };
  const auto ending = [&] {
    asked = -1000;
    const auto waiting = postgresql_engine.open(options);
    waiting->positions(segment.journal());
    asked = 0;
    waiting->store(segment.batch(2, 6));
  };
  try {
    ending();
    ADD_FAILURE() << "it did not wait";
  } catch (const engine_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("given up, as this program is ending"));
  }
  other.sql("rollback");

  // A server that is not there, and then is.
  server.stop(SIGINT);
  EXPECT_THROW(engine->store(segment.batch(2, 6)), engine_error);
  EXPECT_THROW(engine->positions(segment.journal()), engine_error);
  server.start();
  EXPECT_EQ(engine->store(segment.batch(2, 6)).known, 4);
  EXPECT_EQ(server.sql("select count(*) from kplog.record"), "6\n");
}
