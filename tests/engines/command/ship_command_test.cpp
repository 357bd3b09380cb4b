// kplog ship from outside: what it says, how it waits, and how it ends.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "tests/command/golden_file.h"
#include "tests/command/manager_socket.h"
#include "tests/engines/command/fleet_fixture.h"
#include "tests/engines/otlp/otlp_receiver.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
namespace fs = std::filesystem;

// Nobody listens there.
static constexpr const char* nobody = "nats://127.0.0.1:1?tls=off";

class ShipCommand : public testing::Test {
 protected:
  ShipCommand() { fleet_.emit("web1", "shop", random_fleet_records(20, 1)); }

  fleet_folder fleet_;
};

// --- What cannot be meant

TEST_F(ShipCommand, UsageErrors) {
  const std::string ship = "ship web1/shop --definitions shop.ldf ";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"ship", "--to is needed"},
      {"ship --to " + std::string(nobody), "the journal is needed"},
      {"ship web1/shop --to " + std::string(nobody), "--definitions is needed"},
      {ship + "--to nats://a --once --verify", "give one of them"},
      {ship + "--to nats://a --since 2026-11-15", "--since is the first day of --verify"},
      {ship + "--to nats://a --verify --since today", "is no day"},
      {ship + "--to nats://a --stream a.b", "--stream"},
      {ship + "--to nats://a --host ''", "is no name"},
      {ship + "--to shop.jsonl", "is no address of an engine"},
      {ship + "--to gopher://a", "is no address of an engine"},
      {ship + "--to 'nats://a?tls=no'",
       R"(kplog: nats://a?tls=no: "tls=no" is no setting of a NATS address; "tls=off" is one)"},
      {ship + "--to 'nats://a?tls=off&hsot=1'", R"("hsot=1" is no setting of a NATS address)"},
      {ship + "--to nats://a:4222,b:x", R"("x" is no port)"},
      {ship + "--to nats://[::1]:65536", R"("65536" is no port)"},
      {ship + "--to 'postgresql://a/b?hsot=1'",
       "kplog: postgresql://a/b?hsot=1: \"hsot\" is no parameter of a PostgreSQL address; did you "
       "mean "
       "\"host\"?\n"},
      {ship + "--to 'postgresql://a/b?ssl=true&tls%3D=no'", R"("tls=" is no parameter)"},
      {ship + "--to 'postgresql://a/b?sslmode=verify'", R"(verify-full, not "verify")"},
      {ship + "--to 'postgresql://a/b?target_session_attrs=x'", "prefer-standby, not"},
      {ship + "--to postgresql://a:5432,b:0/c", R"("0" is no port)"},
      {ship + "--to 'postgresql://[a/b'", "the address of the database is none"},
      {ship + "--verify --to 'postgresql://a/b?hsot=1'", R"("hsot" is no parameter)"},
      {ship + "--to 'otlp+http://a?tls=no'", R"(otlp+http://a:4318: the URL takes no "tls")"},
      {ship + "--to nats://:4222", "a server's name is missing"},
      {ship + "--to 'nats://[::1?tls=off'", R"("[::1" is no server)"},
      {ship + "--to 'nats://[::1]x:3'", R"("[::1]x:3" is no server)"},
      {ship + "--to 'nats://127.0.0.1#x'", R"("127.0.0.1#x" is no server)"},
      {ship + "--to nats://u@h,v@h", "one user stands before the servers"},
      {ship + "--to nats://u@h:1,v@h:1", "has a second user, or holds a password"},
      {ship + "--to nats://u:x@h", "the address holds a password"},
      {ship + "--to 'otlp+https://a:x'", "is no port"},
      {ship + "--to otlp+http://::1", R"("::1" is no host and port)"},
      {ship + "--to 'otlp+http://[::1'", R"("[::1" is no host and port)"},
      {ship + "--to 'otlp+http://[::1]x'", R"("x" is no port)"},
      {ship + "--to 'otlp+http://a#x'", R"("a#x" is no host and port)"},
      {ship + "--to 'otlp+http://h:1/a b'", R"(otlp+http://h:1: the path "/a b" holds)"},
      {ship + "--to otlp+http://u@a", "otlp+http://a:4318: a password is not sent without TLS"},
      {ship + "--to otlp+http://a --user u", "a password is not sent without TLS"},
      {ship + "--to otlp+http://a --password-file p", "a password is not sent without TLS"},
      {ship + "--to syslog+tls://a --user u", "syslog knows no users"},
      {ship + "--to 'syslog+tls://a?tls=no'", R"(syslog+tls://a:6514: the URL takes no "tls")"},
      {ship + "--to 'syslog+tls://a?max-size=1'", "a size from 2K to 64M"},
      {"render --host '' nats://a", "--host: a name is empty"},
      {"render --host a, postgresql://a/b", "--host: a name is empty"},
      {"render --since never nats://a", "--since: "},
      {"ship --create --to 'postgresql://a/b?hsot=1'", R"("hsot" is no parameter)"},
      {"ship --schema --to 'nats://a?hsot=1'", "is no setting"},
      {"fleet status 'postgresql://a/b?hsot=1'", R"("hsot" is no parameter)"},
      {"fleet status 'nats://a?tls=no'", "is no setting"},
      {"render 'postgresql://a/b?hsot=1'", R"("hsot" is no parameter)"},
      {ship + "--to otlp+http://a --verify", "keeps nothing that --verify could read"},
      {"ship --create --to nats+x://a", "is no address of an engine"},
      {"ship web1/ --definitions shop.ldf --to nats://a", "the journal"},
      {"fleet prune postgresql://a/b", "one of them"},
      {"fleet prune --keep 9 postgresql://a/b", "is no duration"},
      {"fleet prune --before 2026-13-01 postgresql://a/b", "is no day"},
      {"fleet prune --before 9999-01-01 postgresql://a/b", "is to come"},
      {"fleet status syslog+tls://a", "keeps nothing"},
      {"render syslog+tls://a", "keeps no records"},
      {"render web1/shop", "--definitions is needed"},
      {"render web1/shop nats://a", "stands alone"},
  };
  for (const auto& [arguments, text] : cases) {
    const auto result = fleet_.run(arguments);
    EXPECT_EQ(result.status, 2) << arguments << "\n" << result.err;
    EXPECT_THAT(result.err, HasSubstr(text)) << arguments;
  }
}

TEST_F(ShipCommand, APasswordInAnAddressIsRefusedAndNotSaid) {
  for (const std::string address :
       {"postgresql://logs:hidden@db/fleet", "postgresql://logs@db/fleet?password=hidden",
        "postgresql://db/fleet?x=1&PASSWORD=hidden", "postgresql://db/fleet?p%61ssword=hidden",
        "postgresql://db/fleet?sslpassword=hidden", "nats://a:4222,b:hidden@c:4222",
        "nats://:hidden@a", "otlp+https://u:hid/den@collector", "syslog+tls://a:hidden@b:6514"}) {
    for (const std::string command :
         {"ship web1/shop --definitions shop.ldf --once --to ", "fleet status ", "render "}) {
      const auto result = fleet_.run(command + ("'" + address + "'"));
      EXPECT_EQ(result.status, 2) << command << address;
      EXPECT_THAT(result.err, HasSubstr("--password-file")) << address;
      EXPECT_THAT(result.err, Not(HasSubstr("hid"))) << address;
    }
  }
}

TEST_F(ShipCommand, APasswordFileIsReadAndHasOne) {
  fleet_.write("empty", "\n");
  for (const std::string file : {"empty", "none"}) {
    const auto result = fleet_.run("ship web1/shop --definitions shop.ldf --once --to " +
                                   std::string(nobody) + " --password-file " + file);
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("cannot read " + file));
  }
}

// --- The program of the engines

TEST_F(ShipCommand, KplogItselfIsLinkedWithNoEngine) {
  const auto needed = [](const std::string& program) {
    const std::string folder = fs::path(KPLOG_COMMAND).parent_path().string();
    const std::string command = "readelf -d '" + folder + "/" + program + "' | grep NEEDED";
    std::string text;
    FILE* const pipe = popen(command.c_str(), "r");
    for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) text += static_cast<char>(c);
    pclose(pipe);
    return text;
  };
  for (const char* library : {"libpq", "libnats", "libcurl", "libssl", "libcrypto"}) {
    EXPECT_THAT(needed("kplog"), Not(HasSubstr(library)));
  }
  EXPECT_THAT(needed("kplog-ship"), HasSubstr("libpq"));
}

TEST_F(ShipCommand, WithoutThatProgramItSaysWhatIsMissing) {
  const std::string alone = fleet_.file("alone");
  fs::copy_file(KPLOG_COMMAND, alone);
  const std::string command = "cd '" + fleet_.path() + "' && LD_LIBRARY_PATH='" +
                              fs::path(KPLOG_COMMAND).parent_path().parent_path().string() +
                              "/logging' ./alone fleet status " + nobody +
                              " 2>said; echo $? >>said";
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(
      read_whole_file(fleet_.file("said")),
      "kplog: cannot run " + fleet_.path() +
          "/kplog-ship: No such file or directory; what reaches engines comes with the package "
          "kplog-ship\n3\n");
}

// --- Without an engine

TEST_F(ShipCommand, OnceEndsWithoutAnEngineAndAServiceWaitsForIt) {
  const auto once = fleet_.ship("web1", "shop", nobody, "--once", 3);
  EXPECT_THAT(once.err, HasSubstr("kplog: nats://127.0.0.1:1?tls=off: cannot connect"));

  nats_servers server;
  const std::string address = server.address();
  server.kill(0);
  auto words = fleet_folder::ship_words("web1", "shop", address);
  words.insert(words.end(), {"--metrics", "metrics.prom"});
  running_command sender(fleet_.path(), words);
  EXPECT_TRUE(sender.wait_for_err("kplog: " + address + ": cannot connect"));
  const std::string waiting = "\nkplog_ship_waiting_bytes{run=\"web1/shop\"} ";
  std::string figures;
  while (figures.find(waiting) == figures.npos || figures.find(waiting + "0\n") != figures.npos)
    figures = read_whole_file(fleet_.file("metrics.prom"));
  server.start(0);
  EXPECT_TRUE(sender.wait_for_err("records are sent again"));
  sender.signal(SIGHUP);
  fleet_.emit("web1", "shop", random_fleet_records(10, 2));
  std::string counted;
  while (counted.find(" 32\n") == std::string::npos) {
    counted = read_whole_file(fleet_.file("metrics.prom"));
    counted = counted.substr(
        std::min(counted.size(), counted.find("{run=\"web1/shop\",result=\"stored\"}")));
    counted = counted.substr(0, counted.find('\n') + 1);
  }
  sender.signal(SIGTERM);
  const command_end end = sender.wait_for_end();
  EXPECT_EQ(end.status, 0);
  EXPECT_THAT(end.err, HasSubstr("kplog: 32 records: 32 stored, 0 bad"));
  EXPECT_THAT(read_whole_file(fleet_.file("metrics.prom")),
              HasSubstr("kplog_ship_failing{run=\"web1/shop\"} 0\n"));
}

TEST_F(ShipCommand, WhatIsNotSoundAtAReloadIsToldAndTheRunGoesOn) {
  const nats_servers server;
  running_command sender(fleet_.path(), fleet_folder::ship_words("web1", "shop", server.address()));
  EXPECT_TRUE(sender.wait_for_err("kplog: sending web1/shop to " + server.address()));
  fs::rename(fleet_.file("shop.ldf"), fleet_.file("away.ldf"));
  sender.signal(SIGHUP);
  EXPECT_TRUE(sender.wait_for_err("shop.ldf"));
  fs::rename(fleet_.file("away.ldf"), fleet_.file("shop.ldf"));
  fleet_.emit("web1", "shop", random_fleet_records(10, 2));
  sender.signal(SIGINT);
  EXPECT_EQ(sender.wait_for_end().status, 0);
  fleet_.ship("web1", "shop", server.address(), "--once");
  fleet_.ship("web1", "shop", server.address(), "--verify --count web1/shop");
}

TEST_F(ShipCommand, AReloadHasThePasswordAndTheDefinitionsReadAgain) {
  const nats_servers server(1, "authorization { user: \"logs\", password: \"secret\" }\n");
  fleet_.write("password", "another\n");
  const std::vector<std::string> access = {"--user", "logs", "--password-file", "password"};
  auto words = fleet_folder::ship_words("web1", "shop", server.address());
  words.insert(words.end(), access.begin(), access.end());
  running_command sender(fleet_.path(), words);
  EXPECT_TRUE(sender.wait_for_err(server.address() + ": cannot connect: Authorization Violation"));
  fleet_.write("password", "secret\n");
  sender.signal(SIGHUP);
  EXPECT_TRUE(sender.wait_for_err("records are sent again"));
  fleet_.write("shop.yaml", read_whole_file(fleet_.file("shop.yaml")) +
                                "  FIRE:\n    id: 1004\n    message: \"it burns\"\n");
  EXPECT_EQ(fleet_.run("compile -q shop.yaml -o shop.ldf").status, 0);
  sender.signal(SIGHUP);
  fleet_.emit("web1", "shop",
              R"({"event":"FIRE","time":"2026-11-16T00:00:00Z"})"
              "\n");
  // Who asks has the definitions from the engine.
  EXPECT_TRUE(comes_true([&] {
    return fleet_
               .run("render -q --event FIRE --user logs --password-file password " +
                    server.address())
               .out == "it burns\n";
  }));
  sender.signal(SIGTERM);
  EXPECT_EQ(sender.wait_for_end().status, 0);
}

TEST_F(ShipCommand, ARunThatIsCutOffSaysByWhat) {
  const environment_value no_proxy("no_proxy", "127.0.0.1");
  otlp_receiver receiver;
  auto words = fleet_folder::ship_words("web1", "shop", receiver.address());
  words.emplace_back("--once");
  for (const auto& [signal, status] : {std::pair{SIGTERM, 143}, std::pair{SIGINT, 130}}) {
    receiver.plan(R"({"hang":true})");
    running_command sender(fleet_.path(), words);
    EXPECT_FALSE(receiver.request().contains("error"));
    sender.signal(signal);
    EXPECT_EQ(sender.wait_for_end().status, status);
  }
  EXPECT_EQ(fleet_.ship("web1", "shop", receiver.address(), "--once").err,
            "kplog: 21 records: 21 stored, 0 bad\n");
}

TEST_F(ShipCommand, OneProcessAtATimeSendsAJournalToAnEngine) {
  const nats_servers server;
  running_command first(fleet_.path(), fleet_folder::ship_words("web1", "shop", server.address()));
  EXPECT_TRUE(first.wait_for_err("kplog: sending web1/shop to"));
  running_command second(fleet_.path(), fleet_folder::ship_words("web1", "shop", server.address()));
  EXPECT_TRUE(second.wait_for_err("waiting for the lock"));
  first.signal(SIGTERM);
  EXPECT_EQ(first.wait_for_end().status, 0);
  second.signal(SIGTERM);
  second.wait_for_end();
}

TEST_F(ShipCommand, AJournalThatIsNotThereIsNotSentOnceButWaitedFor) {
  const nats_servers server;
  for (const std::string journal : {"web1/shpo", "none/shop"}) {
    const auto once = fleet_.run("ship " + journal + " --definitions shop.ldf --once --to '" +
                                 server.address() + "'");
    EXPECT_EQ(once.status, 3);
    EXPECT_THAT(once.err, HasSubstr("cannot read "));
  }
  EXPECT_EQ(fleet_.run("fleet status --format json " + server.address()).out, "");
  running_command sender(fleet_.path(), fleet_folder::ship_words("web9", "shop", server.address()));
  EXPECT_TRUE(sender.wait_for_err("cannot open the folder"));
  fleet_.emit("web9", "shop", random_fleet_records(10, 2));
  EXPECT_TRUE(sender.wait_for_err("records are sent again"));
  sender.signal(SIGTERM);
  EXPECT_EQ(sender.wait_for_end().status, 0);
  fleet_.ship("web9", "shop", server.address(), "--once -q");
  fleet_.ship("web9", "shop", server.address(), "--verify --count web9/shop");
}

TEST_F(ShipCommand, ADamagedSegmentHoldsNobodyUpAndIsNotGood) {
  const nats_servers server;
  std::ofstream(fleet_.file("web1/shop.20261113.0001.jsonl.zst")) << "no frame of zstd";
  const auto once = fleet_.ship("web1", "shop", server.address(), "--once", 3);
  EXPECT_THAT(once.err, HasSubstr("shop.20261113.0001.jsonl.zst"));
  EXPECT_THAT(once.err, HasSubstr("kplog: 21 records: 21 stored, 0 bad"));
  const auto verified =
      fleet_.ship("web1", "shop", server.address(), "--verify --count web1/shop", 3);
  EXPECT_THAT(verified.err, HasSubstr("21 records in the engine; all alike"));
}

// --- Under a service manager

TEST_F(ShipCommand, TellsItsManagerWhenItSendsReloadsAndStops) {
  const nats_servers server;
  const manager_socket manager(fleet_.file("manager"));
  running_command sender(fleet_.path(), fleet_folder::ship_words("web1", "shop", server.address()),
                         command_err::pipe,
                         "export WATCHDOG_USEC=100000000 NOTIFY_SOCKET=" + fleet_.file("manager"));
  EXPECT_EQ(manager.heard(), "READY=1\nSTATUS=Sending records");
  sender.signal(SIGHUP);
  EXPECT_THAT(manager.heard(), StartsWith("RELOADING=1\n"));
  EXPECT_EQ(manager.heard(), "READY=1\nSTATUS=Sending records");
  sender.signal(SIGTERM);
  EXPECT_EQ(manager.heard(), "STOPPING=1\nSTATUS=Telling how far they were sent");
  EXPECT_EQ(sender.wait_for_end().status, 0);
}

TEST_F(ShipCommand, TellsTheWatchdogThatItIsAliveWhileNobodyIsThere) {
  const manager_socket manager(fleet_.file("manager"));
  running_command sender(fleet_.path(), fleet_folder::ship_words("web1", "shop", nobody),
                         command_err::pipe,
                         "export WATCHDOG_USEC=20000 NOTIFY_SOCKET=" + fleet_.file("manager"));
  EXPECT_THAT(manager.heard(), StartsWith("READY=1"));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(manager.heard(), "WATCHDOG=1");
  sender.signal(SIGTERM);
  EXPECT_EQ(sender.wait_for_end().status, 0);
}

// --- What is told

static std::string with(std::string text, const std::string& replaced, const std::string& by) {
  for (size_t at = text.find(replaced); at != std::string::npos; at = text.find(replaced))
    text.replace(at, replaced.size(), by);
  return text;
}

TEST_F(ShipCommand, GoldenListOfWhatIsTold) {
  const nats_servers server;
  otlp_receiver receiver;
  std::string text;
  const auto run = [&](const std::string& what, const std::string& arguments) {
    const auto result = fleet_.run("--format json " + arguments);
    std::string said = with(result.err, server.address(), "ADDRESS");
    said = with(with(said, receiver.address(), "RECEIVER"), fleet_.path(), "FOLDER");
    text += "# " + what + "\n" + said + "status " + std::to_string(result.status) + "\n\n";
  };
  const std::string ship =
      "ship web1/shop --host web1 --definitions shop.ldf --to " + server.address();
  run("nobody is there",
      "ship web1/shop --host web1 --definitions shop.ldf --once --to " + std::string(nobody));
  run("all that there is", ship + " --once");
  run("all alike", ship + " --verify --count web1/shop");
  fleet_.emit("web1", "shop",
              R"({"event":"NOTE","time":"2026-11-20T00:00:00Z","attributes":{"TEXT":"a"}})"
              "\n");
  run("something is missing", ship + " --verify --count web1/shop --since 2026-11-20");
  fs::remove(fleet_.file("web1/shop.20261120.0001.jsonl"));
  run("it is gone", ship + " --verify --count web1/shop --since 2026-11-20");
  std::ofstream(fleet_.file("web1/shop.20261121.0001.jsonl"))
      << "{\"event\":\"NOTE\"}\n{\"event\":";
  run("a line without an end is left", ship + " --once");
  fs::remove(fleet_.file("web1/shop.20261121.0001.jsonl"));
  run("and is gone", ship + " --once");
  receiver.plan(
      R"({"body":"{\"partialSuccess\":{\"rejectedLogRecords\":\"2\",\"errorMessage\":\"too old\"}}"})");
  std::string notes;
  for (int note = 0; note < 3; ++note)
    notes += R"({"event":"NOTE","time":"2026-11-15T00:00:00Z","attributes":{"TEXT":"a"}})"
             "\n";
  fleet_.emit("db1", "shop", notes);
  run("a receiver refuses some",
      "ship db1/shop --host db1 --definitions shop.ldf --once --to " + receiver.address());
  expect_golden_file("ship.expected", text);
}
