// What goes wrong with a database, and what is there behind that.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>

#include "engines/postgresql/engine.h"
#include "tests/engines/postgresql/database_server.h"
#include "tests/engines/postgresql/shipped_batch.h"
#include "tests/engines/support/loopback_socket.h"
#include "tests/engines/support/tls_certificates.h"

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// What an operation raises, which has one line and begins with the address.
static std::string error_of(const engine_options& options, const std::function<void()>& operation) {
  try {
    operation();
  } catch (const engine_error& error) {
    const std::string text = error.what();
    EXPECT_THAT(text, AllOf(StartsWith(options.address + ": "), Not(HasSubstr("\n"))));
    return text.substr(std::min(text.size(), options.address.size() + 2));
  }
  return "nothing is wrong";
}

static std::string store_error(const engine_options& options, const shipped_segment& segment) {
  return error_of(options, [&] { postgresql_engine.open(options)->store(segment.all()); });
}

static std::string ask_error(const engine_options& options) {
  return error_of(options, [&] { postgresql_engine.ask(options, {})->kits(); });
}

static std::string create_error(const engine_options& options) {
  return error_of(options, [&] { postgresql_engine.create(options); });
}

TEST(PostgresqlFailure, IsSaidInOneLineWithWhatWouldHelp) {
  const database_server server;
  shipped_segment segment;
  segment.add_numbers(0, 3);

  EXPECT_THAT(store_error(server.options("postgres", "nowhere"), segment),
              AllOf(HasSubstr("database \"nowhere\" does not exist"), HasSubstr("createdb")));
  EXPECT_THAT(store_error(server.options("nobody"), segment),
              HasSubstr("role \"nobody\" does not exist"));
  EXPECT_EQ(store_error(server.options(), segment),
            "it has no schema \"kplog\": `kplog ship --create --to ADDRESS` makes it");
  server.sql("create role logs login; create role maker login");
  // Roles are made by whoever may, or are there.
  server.sql("create database made owner maker");
  EXPECT_THAT(create_error(server.options("maker", "made")),
              HasSubstr("there is no role \"kplog_ship\", and maker may make none: CREATE ROLE"));
  postgresql_engine.create(server.options());
  postgresql_engine.create(server.options("maker", "made"));
  EXPECT_EQ(server.sql("select version from kplog.version", "maker", "made"), "1\n");
  EXPECT_EQ(store_error(server.options("logs"), segment),
            "the user may not use the schema \"kplog\": the user needs the role kplog_ship: "
            "GRANT kplog_ship TO ...");
  EXPECT_EQ(ask_error(server.options("logs")),
            "the user may not use the schema \"kplog\": the user needs the role kplog_read: "
            "GRANT kplog_read TO ...");
  EXPECT_THAT(create_error(server.options("logs")),
              AllOf(HasSubstr("permission denied"), HasSubstr(": a new schema needs CREATE on the"),
                    Not(HasSubstr("GRANT kplog"))));
  server.sql("grant kplog_read to logs");
  EXPECT_THAT(store_error(server.options("logs"), segment),
              AllOf(HasSubstr("permission denied"), HasSubstr("GRANT kplog_ship TO")));
  EXPECT_EQ(ask_error(server.options("logs")), "nothing is wrong");
  EXPECT_THAT(error_of(server.options("logs"),
                       [&] { postgresql_engine.view(server.options("logs"))->prune("20200101"); }),
              AllOf(HasSubstr("permission denied"), EndsWith(": days are removed by the owner of "
                                                             "the schema")));
  server.sql("grant kplog_ship to logs; revoke temporary on database postgres from public");
  const auto sender = postgresql_engine.open(server.options("logs"));
  for (int i = 0; i < 2; ++i)
    EXPECT_THAT(error_of(server.options("logs"), [&] { sender->positions(segment.journal()); }),
                AllOf(HasSubstr("permission denied"), EndsWith(": a sender makes a table of its "
                                                               "session: GRANT TEMPORARY ON "
                                                               "DATABASE ... TO ...")));
  server.sql("grant temporary on database postgres to logs");
  EXPECT_EQ(error_of(server.options("logs"), [&] { sender->store(segment.all()); }),
            "nothing is wrong");
  server.sql("revoke kplog_ship, kplog_read from logs");

  server.sql("create database latin encoding LATIN1 template template0");
  EXPECT_THAT(create_error(server.options("postgres", "latin")),
              HasSubstr("the database has the encoding LATIN1, and UTF8 is needed"));
  server.sql("create database other");
  server.sql("create schema kplog; create table kplog.mine ()", "postgres", "other");
  EXPECT_THAT(
      create_error(server.options("postgres", "other")),
      AllOf(HasSubstr("the schema \"kplog\" is another's"), HasSubstr("it stays as it is")));
  EXPECT_EQ(store_error(server.options("postgres", "other"), segment),
            "its schema \"kplog\" has no version, as it is another's: in another database `kplog "
            "ship --create --to ADDRESS` makes it");
  server.sql("update kplog.version set version = 77");
  EXPECT_EQ(ask_error(server.options()),
            "its schema \"kplog\" has version 77, not 1: a newer kplog made it, which has to be "
            "installed here as well");
  EXPECT_THAT(create_error(server.options()),
              AllOf(HasSubstr("the schema \"kplog\" has version 77, not 1"),
                    HasSubstr("HINT:  it stays as it is: another database, or the kplog that made "
                              "it")));
  server.sql("update kplog.version set version = 0");
  EXPECT_EQ(store_error(server.options(), segment),
            "its schema \"kplog\" has version 0, not 1: in another database `kplog ship --create "
            "--to ADDRESS` makes it");
}

TEST(PostgresqlFailure, ToAnswerIsWaitedForUntilTheProgramIsToEnd) {
  std::optional<loopback_socket> listening(std::in_place);
  listening->listen();
  engine_options options;
  options.address = "postgresql://logs@127.0.0.1:" + std::to_string(listening->port()) + "/fleet";
  int asked = 0;
  options.is_to_end = [&] { return ++asked > 2; };
  EXPECT_EQ(ask_error(options), "given up, as this program is ending");
  listening.reset();
  options.is_to_end = {};
  EXPECT_THAT(ask_error(options), HasSubstr("Connection refused"));
}

TEST(PostgresqlFailure, OfVerifyingTheServerSendsNothing) {
  const tls_authority authority;
  const tls_authority stranger;
  database_server server({.has_port = true});
  const std::string password = "a 'secret\\ word";
  server.sql("create role logs login password 'a ''secret\\ word'");
  postgresql_engine.create(server.options());
  server.sql("grant kplog_ship to logs");
  shipped_segment segment;
  segment.add_numbers(0, 3);
  const auto use_certificate = [&](const tls_identity& identity) {
    server.write("server.key", read_whole_file(identity.key));
    server.write("server.crt", read_whole_file(identity.certificate));
    server.sql("alter system set ssl_key_file = '" + server.folder() + "/server.key'");
    server.sql("alter system set ssl_cert_file = '" + server.folder() + "/server.crt'");
    server.sql("alter system set ssl = on");
    server.stop(SIGINT);
    server.start();
  };
  const auto local = [&] { return "@localhost:" + std::to_string(server.port()) + "/postgres"; };
  server.write("data/pg_hba.conf",
               "local all all trust\nhost all all 127.0.0.1/32 scram-sha-256\n");
  server.sql("select pg_reload_conf()");
  engine_options options;
  options.address = "postgresql://logs" + local();
  options.password = password;
  options.tls_ca = authority.file();
  EXPECT_THAT(store_error(options, segment), HasSubstr("server does not support SSL"));
  // Unverified only where the address says so.
  engine_options plain = options;
  plain.address += "?sslmode=disable";
  EXPECT_EQ(store_error(plain, segment), "nothing is wrong");

  struct certificate_case {
    tls_identity identity;
    std::string error;
  };
  for (const auto& [identity, error] :
       {certificate_case{authority.issue("another.example"),
                         "server certificate for \"another.example\" does not match"},
        certificate_case{authority.issue("localhost", 60), "certificate verify failed"},
        certificate_case{stranger.issue("localhost"), "certificate verify failed"},
        certificate_case{authority.issue("localhost"), "nothing is wrong"}}) {
    use_certificate(identity);
    options.address = "postgresql://logs" + local();
    EXPECT_THAT(store_error(options, segment), HasSubstr(error));
  }
  EXPECT_EQ(server.sql("select count(*) from kplog.record"), "3\n");

  options.password = "another";
  EXPECT_THAT(store_error(options, segment),
              AllOf(HasSubstr("password authentication failed for user \"logs\""),
                    HasSubstr("--password-file"), Not(HasSubstr("another"))));
  options.password.reset();
  EXPECT_THAT(store_error(options, segment), HasSubstr("no password supplied"));
  options.address = "postgresql://logs:in-the-address" + local();
  try {
    postgresql_engine.open(options)->positions(segment.journal());
    ADD_FAILURE() << "a password in the address is taken";
  } catch (const engine_error& refused) {
    EXPECT_STREQ(refused.what(), "an address holds no password: --password-file does");
  }
}
