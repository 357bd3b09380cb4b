// A standby that takes over: what was confirmed is there, and the rest is sent to it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "engines/postgresql/address.h"
#include "engines/postgresql/engine.h"
#include "tests/engines/postgresql/database_server.h"
#include "tests/engines/postgresql/shipped_batch.h"

using testing::HasSubstr;

static size_t count_of(const engine_options& options) {
  const auto archive = postgresql_engine.ask(options, {});
  archived_record record;
  size_t count = 0;
  while (archive->next(record, std::chrono::milliseconds(0))) ++count;
  return count;
}

TEST(PostgresqlStandby, HasWhatWasConfirmedAndTakesOver) {
  database_server first;
  postgresql_engine.create(first.options());
  const database_server second({.standby_of = &first});
  ASSERT_EQ(first.sql("alter system set synchronous_standby_names = '*'"), "");
  ASSERT_EQ(first.sql("select pg_reload_conf()"), "t\n");
  // Transactions wait for the standby from now on.
  while (first.sql("select sync_state from pg_stat_replication") != "sync\n") {
  }
  shipped_segment segment;
  segment.add_numbers(0, 100);

  // Both in one address, the standby before: it is passed over by who writes, and asked by who
  // reads.
  engine_options both;
  const auto place = [](const database_server& server) {
    const std::string address = server.address();
    const size_t begin = address.find('@') + 1;
    return address.substr(begin, address.rfind('/') - begin);
  };
  both.address = "postgresql://postgres@" + place(second) + "," + place(first) + "/postgres";
  const auto engine = postgresql_engine.open(both);
  engine->store(segment.batch(0, 60));
  while (count_of(second.options()) < 60) {  // confirmed is what it has, and it shows it soon
  }
  EXPECT_THROW(postgresql_engine.open(second.options())->store(segment.batch(0, 60)), engine_error);

  first.stop(SIGKILL);
  EXPECT_EQ(count_of(both), 60);
  try {
    engine->store(segment.batch(60, 100));
    ADD_FAILURE() << "it was stored in a standby";
  } catch (const engine_error&) {
  }
  try {
    engine->store(segment.batch(60, 100));
    ADD_FAILURE() << "it was stored in a standby";
  } catch (const engine_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("session is read-only"));
    EXPECT_THAT(error.what(), HasSubstr("Connection refused"));
  }
  ASSERT_EQ(second.sql("alter system reset synchronous_standby_names"), "");
  ASSERT_EQ(second.sql("select pg_promote()"), "t\n");
  EXPECT_EQ(engine->positions(segment.journal())->at(0).extent, segment.position(60).extent);
  EXPECT_EQ(engine->store(segment.batch(60, 100)).known, 0);
  EXPECT_EQ(count_of(both), 100);
}

TEST(PostgresqlAddress, NamesServersThatAreVerifiedUnlessItSaysOtherwise) {
  engine_options options;
  options.address = "postgresql://one@a:1,b/fleet?application_name=mine";
  options.user = "two";
  options.password = "secret";
  options.tls_ca = "/ca.pem";
  const std::vector<pg_parameter_map> servers = pg_servers(options, true);
  ASSERT_EQ(servers.size(), 2);
  EXPECT_EQ(servers[1], (pg_parameter_map{{"application_name", "mine"},
                                          {"client_encoding", "UTF8"},
                                          {"connect_timeout", "10"},
                                          {"dbname", "fleet"},
                                          {"host", "b"},
                                          {"hostaddr", ""},
                                          {"keepalives_count", "3"},
                                          {"keepalives_idle", "10"},
                                          {"keepalives_interval", "5"},
                                          {"password", "secret"},
                                          {"port", ""},
                                          {"sslmode", "verify-full"},
                                          {"sslrootcert", "/ca.pem"},
                                          {"target_session_attrs", "read-write"},
                                          {"tcp_user_timeout", "30000"},
                                          {"user", "two"}}));
  EXPECT_EQ(servers[0].at("host") + ":" + servers[0].at("port"), "a:1");
  EXPECT_FALSE(pg_servers(options, false)[0].contains("target_session_attrs"));
  options.address = "postgresql://a/fleet?sslmode=require";
  EXPECT_EQ(pg_servers(options, true)[0].at("sslmode"), "require");
  EXPECT_FALSE(pg_servers(options, true)[0].contains("target_session_attrs"));
  for (const char* refused : {"postgresql://u:in-the-address@a/fleet", "nats://a", "postgresql://[",
                              "postgresql://a/fleet?sslpassword=in-the-address",
                              "postgresql://a/fleet?password=in-the-address"}) {
    options.address = refused;
    try {
      pg_servers(options, true);
      ADD_FAILURE() << refused << " is taken";
    } catch (const engine_error& error) {
      EXPECT_THAT(error.what(), testing::Not(HasSubstr("in-the-address")));
    }
  }
}
