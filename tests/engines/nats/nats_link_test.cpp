#include "engines/nats/link.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <sstream>
#include <thread>

#include "engines/nats/address.h"
#include "engines/nats/engine.h"
#include "tests/engines/nats/made_journal.h"
#include "tests/engines/nats/nats_servers.h"
#include "tests/engines/support/tls_certificates.h"

TEST(NatsAddress, IsOneOrSeveralServers) {
  const nats_address one = nats_address_of("nats://broker");
  EXPECT_EQ(one.servers, std::vector<std::string>{"nats://broker"});
  EXPECT_EQ(one.user, "");
  EXPECT_TRUE(one.is_tls);
  const nats_address several = nats_address_of("nats://logs@a:4222,b,[::1]:9/?tls=off");
  EXPECT_EQ(several.servers,
            (std::vector<std::string>{"nats://a:4222", "nats://b", "nats://[::1]:9"}));
  EXPECT_EQ(several.hosts, (std::vector<std::string>{"a", "b", "::1"}));
  EXPECT_EQ(several.user, "logs");
  EXPECT_FALSE(several.is_tls);
  const auto error_of = [](const std::string& url) -> std::string {
    try {
      nats_address_of(url);
    } catch (const engine_error& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(error_of("nats://a,,b"), "nats://a,,b: a server's name is missing");
  EXPECT_EQ(error_of("nats://"), "nats://: a server's name is missing");
  EXPECT_EQ(error_of("nats://a/KPLOG"),
            "nats://a/KPLOG: a NATS address has no path; the stream is told with --stream");
  EXPECT_EQ(error_of("nats://a?tls=no"),
            "nats://a?tls=no: \"tls=no\" is no setting of a NATS address; \"tls=off\" is one");
  EXPECT_EQ(error_of("nats://a:4222,b:0"),
            "nats://a:4222,b:0: \"0\" is no port, which is a number from 1 to 65535");
}

// A label of a name has 63 letters at most, so that nobody is asked for it.
TEST(NatsLink, SaysWhichNamesAreNotFound) {
  const std::string host(70, 'b');
  engine_options options;
  options.address = "nats://127.0.0.1:1," + host + ":4222?tls=off";
  const std::string expected = options.address +
                               ": cannot connect: No server available for connection; the name \"" +
                               host + "\" is not found: ";
  EXPECT_TRUE(refusal(options).starts_with(expected)) << refusal(options);
}

TEST(NatsLink, VerifiesServersUnlessTheAddressSaysOtherwise) {
  const tls_authority authority;
  const tls_authority stranger;
  const auto settings = [](const tls_identity& identity) {
    return "tls { cert_file: \"" + identity.certificate + "\", key_file: \"" + identity.key +
           "\" }\n";
  };
  nats_servers servers(1, settings(authority.issue("localhost")));
  const auto restart = [&](const std::string& with) {
    servers.kill(0);
    servers.set_settings(with);
    servers.start(0);
  };
  engine_options options = servers.options();
  options.address = "nats://localhost:" + std::to_string(servers.port_of(0));
  options.tls_ca = authority.file();
  const std::string cannot = options.address + ": cannot connect: ";
  EXPECT_EQ(refusal(options), "");
  options.tls_ca = stranger.file();
  EXPECT_TRUE(refusal(options).starts_with(cannot + "SSL handshake error: ")) << refusal(options);
  EXPECT_TRUE(refusal(options).ends_with("; who is trusted is told with --tls-ca FILE"));
  options.tls_ca = "";
  EXPECT_TRUE(refusal(options).starts_with(cannot + "SSL handshake error: ")) << refusal(options);
  options.tls_ca = "/nowhere";
  EXPECT_EQ(refusal(options),
            options.address + ": /nowhere cannot be read as certificates of authorities");
  options.tls_ca = authority.file();
  restart(settings(authority.issue("other.example")));
  EXPECT_NE(refusal(options).find("hostname mismatch"), std::string::npos) << refusal(options);
  restart(settings(authority.issue("localhost", 1800)));
  EXPECT_NE(refusal(options).find("certificate has expired"), std::string::npos)
      << refusal(options);
  restart("");
  EXPECT_EQ(refusal(options), cannot +
                                  "Secure Connection not available; where the server is not to be "
                                  "verified, the address ends with ?tls=off");
  EXPECT_EQ(refusal(servers.options()), "");
}

TEST(NatsLink, SaysWhatIsWrongAndNeverThePassword) {
  nats_servers servers(1, "authorization { user: \"logs\", password: \"secret\" }\n");
  engine_options options = servers.options();
  const std::string cannot = options.address + ": cannot connect: ";
  EXPECT_EQ(refusal(options), cannot + "Authorization Violation");
  options.user = "logs";
  options.password = "secret1";
  EXPECT_EQ(refusal(options), cannot + "Authorization Violation");
  options.password = "secret";
  EXPECT_EQ(refusal(options), "");
  servers.kill(0);
  servers.set_settings("authorization { token: \"secret\" }\n");
  servers.start(0);
  options.user = "";
  EXPECT_EQ(refusal(options), "");

  options.stream = "A.B";
  EXPECT_EQ(refusal(options), options.address +
                                  ": \"A.B\" cannot be a stream's name, which is made of letters, "
                                  "digits, \"-\" and \"_\", up to 200");
  options.stream = "KPLOG";
  options.replicas = 3;
  std::vector<std::string> told;
  options.tell = [&](const std::string& text) { told.push_back(text); };
  EXPECT_EQ(refusal(options), "");
  EXPECT_EQ(told, (std::vector<std::string>{
                      options.address + ": the stream KPLOG has 1 replicas, where 3 are asked for",
                      options.address +
                          ": the stream KPLOG_STATE has 1 replicas, where 3 are asked for"}));
  options.stream = "OTHER";
  EXPECT_EQ(refusal(options),
            options.address +
                ": cannot make the stream OTHER: replicas > 1 not supported in non-clustered mode");
  servers.kill(0);
  EXPECT_EQ(refusal(options), cannot + "No server available for connection");
}

TEST(NatsLink, EndsWhenItIsToEnd) {
  nats_servers servers;
  engine_options options = servers.options();
  std::atomic<bool> is_to_end = false;
  options.is_to_end = [&] { return is_to_end.load(); };
  const journal_identity journal{"web1", "/var/log/shop/shop"};
  made_segment segment("shop.20261115.0001.jsonl");
  for (int i = 0; i < 100; ++i) segment.add("record", 1, 3);
  const auto engine = nats_engine.open(options);
  store_lines(*engine, journal, segment, 0, 50);
  servers.signal(0, SIGSTOP);
  const auto ended = [&](const std::function<void()>& work) {
    is_to_end = false;
    std::thread ending([&] { is_to_end = true; });
    std::string error;
    try {
      work();
    } catch (const engine_error& raised) {
      error = raised.what();
    }
    ending.join();
    return error;
  };
  const std::string text = options.address + ": ended before the engine had answered";
  EXPECT_EQ(ended([&] { store_lines(*engine, journal, segment, 50, 100); }), text);
  EXPECT_EQ(ended([&] { engine->positions(journal); }), text);  // while it connects
  servers.signal(0, SIGCONT);
  is_to_end = false;
  nats_eventually([&] { store_lines(*engine, journal, segment, 50, 100); });
}

// Whose password is the first letter.
static engine_options of_user(const nats_servers& servers, const std::string& user) {
  engine_options options = servers.options();
  options.user = user;
  options.password = user.substr(0, 1);
  return options;
}

TEST(NatsLink, NeedsFewRights) {
  const std::string asked =
      "\"$JS.API.STREAM.INFO.*\", \"$JS.API.STREAM.MSG.GET.*\", \"$JS.API.CONSUMER.>\", "
      "\"$JS.FC.>\"";
  const std::string answers = "], subscribe: [\"_INBOX.>\"] } }\n";
  const nats_servers servers(
      1,
      "authorization { users: [ { user: keeper, password: k }\n"
      "{ user: sender, password: s, permissions: { publish: [\"kplog.>\", \"kplog-state.>\", " +
          asked + answers + "{ user: reader, password: r, permissions: { publish: [" + asked +
          answers + "{ user: nobody, password: n, permissions: { publish: [\"x\"" + answers +
          "] }\n");
  const auto as = [&](const std::string& user) { return of_user(servers, user); };
  nats_engine.create(as("keeper"));
  const journal_identity journal{"web1", "/var/log/shop/shop"};
  made_segment segment("shop.20261115.0001.jsonl");
  for (int i = 0; i < 5'000; ++i) segment.add(std::string(1000, 'x'), 1, 3);
  const auto engine = nats_engine.open(as("sender"));
  send_segment(*engine, journal, segment, 1000);
  engine->tell(journal, {});
  EXPECT_TRUE(placed_texts(*nats_engine.ask(as("reader"), {})) == placed_texts(journal, segment));
  EXPECT_EQ(nats_engine.ask(as("reader"), {})->kits().size(), 1U);
  EXPECT_EQ(nats_engine.view(as("reader"))->rows().size(), 1U);
  try {
    nats_engine.open(as("reader"))->offer({.bytes = "a kit"});
    ADD_FAILURE() << "a reader sends";
  } catch (const engine_error& error) {
    EXPECT_THAT(error.what(), testing::MatchesRegex(".*: does not take what it is sent \\(.*"
                                                    "Permissions Violation for Publish to .*"));
  }
  engine_options refused = as("nobody");
  const std::string error = refusal(refused);
  EXPECT_TRUE(error.starts_with(refused.address + ": cannot ask for the stream KPLOG: ")) << error;
  EXPECT_NE(error.find("Permissions Violation"), std::string::npos) << error;
}

TEST(NatsLink, HasTenantsThatAreAccounts) {
  const nats_servers servers(1,
                             "accounts {\n"
                             "red { jetstream: enabled, users: [ { user: red, password: r } ] }\n"
                             "blue { jetstream: enabled, users: [ { user: blue, password: b } ] }\n"
                             "}\n");
  const auto as = [&](const std::string& user) { return of_user(servers, user); };
  const journal_identity journal{"web1", "/var/log/shop/shop"};
  for (const std::string user : {"red", "blue"}) {
    nats_engine.create(as(user));
    EXPECT_TRUE(nats_engine.view(as(user))->rows().empty()) << user;
    made_segment segment("shop.20261115.0001.jsonl");
    for (int i = 0; i < 10; ++i) segment.add(user + std::to_string(i), 1, 3);
    send_segment(*nats_engine.open(as(user)), journal, segment, 5);
    EXPECT_TRUE(placed_texts(*nats_engine.ask(as(user), {})) == placed_texts(journal, segment));
  }
  EXPECT_EQ(nats_engine.view(as("red"))->rows().size(), 1U);
}

TEST(NatsLink, MakesTheStreamsThatItShows) {
  const nats_servers servers;
  engine_options options = servers.options();
  options.stream = "Shop";
  std::string told;
  options.tell = [&](const std::string& text) { told += text + '\n'; };
  const std::string shown = nats_engine.schema(options);
  EXPECT_EQ(
      shown,
      "{\"name\":\"Shop\",\"description\":\"Records of kplog\",\"subjects\":[\"shop.*.*.*\"],"
      "\"retention\":\"limits\",\"storage\":\"file\",\"num_replicas\":1,\"discard\":\"new\","
      "\"duplicate_window\":120000000000,\"max_consumers\":-1,\"max_msgs\":-1,\"max_bytes\":-1,"
      "\"max_msg_size\":-1,\"max_msgs_per_subject\":-1,\"max_age\":0}\n"
      "{\"name\":\"Shop_STATE\",\"description\":\"Where senders of kplog are, and what their "
      "records "
      "are shown "
      "by\",\"subjects\":[\"shop-state.>\"],\"retention\":\"limits\",\"storage\":\"file\","
      "\"num_replicas\":1,\"discard\":\"old\",\"duplicate_window\":120000000000,\"max_consumers\":-"
      "1,"
      "\"max_msgs\":-1,\"max_bytes\":-1,\"max_msg_size\":-1,\"max_msgs_per_subject\":1,\"max_age\":"
      "0}\n");
  nats_link link(options);
  std::istringstream lines(shown);
  for (const char* const name : {"Shop", "Shop_STATE"}) {
    std::string line;
    std::getline(lines, line);
    natsMsg* answer = nullptr;
    ASSERT_EQ(natsConnection_Request(&answer, link.connection(),
                                     (std::string("$JS.API.STREAM.CREATE.") + name).c_str(),
                                     line.data(), static_cast<int>(line.size()), 60'000),
              NATS_OK);
    const nats_message owned(answer);
    EXPECT_EQ(nats_bytes(owned).find("\"error\""), std::string::npos) << nats_bytes(owned);
  }
  nats_engine.create(options);
  EXPECT_EQ(refusal(options), "");
  EXPECT_EQ(told, "");
}
