// kplog ship to pipelines, from outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "tests/command/documentation_page.h"
#include "tests/engines/command/fleet_fixture.h"
#include "tests/engines/otlp/otlp_receiver.h"
#include "tests/engines/syslog/rsyslog_server.h"

using nlohmann::json;

static std::string pipeline_records(int begin, int end) {
  std::string records;
  for (int i = begin; i < end; ++i)
    records += R"({"event":"USER_LOGIN","time":"2026-11-15T17:02:56Z","attributes":{"PORT":)" +
               std::to_string(i) + R"(,"USER_NAME":"alice","SHARE":2}})" + "\n";
  return records;
}

static std::vector<std::string> pipeline_messages(int begin, int end) {
  std::vector<std::string> messages;
  for (int i = begin; i < end; ++i)
    messages.push_back("alice logged in on port " + std::to_string(i));
  return messages;
}

TEST(ShipToPipelines, SendsAJournalToAReceiverOfLogs) {
  const environment_value no_proxy("no_proxy", "127.0.0.1");
  fleet_folder folder;
  otlp_receiver receiver;
  const std::string to = receiver.address();
  folder.emit("till", "shop", pipeline_records(0, 300));
  EXPECT_EQ(folder.ship("till", "shop", to, "--once").err,
            "kplog: 300 records: 300 stored, 0 bad\n");
  EXPECT_EQ(folder.ship("till", "shop", to, "--once").err, "kplog: 0 records: 0 stored, 0 bad\n");
  receiver.plan(
      R"({"body":"{\"partialSuccess\":{\"rejectedLogRecords\":2,\"errorMessage\":\"too old\"}}"})");
  folder.emit("till", "shop", pipeline_records(300, 310));
  const std::string rejected = folder.ship("till", "shop", to, "--once", 1).err;
  EXPECT_THAT(rejected, testing::HasSubstr(" records from here on were rejected by " + to +
                                           ", which does not say which: too old\n"));
  EXPECT_THAT(rejected, testing::EndsWith("kplog: 10 records: 8 stored, 2 refused, 0 bad\n"));
  folder.emit("till", "shop", pipeline_records(310, 320));
  receiver.plan(R"({"status":401})");
  EXPECT_EQ(folder.ship("till", "shop", to, "--once", 3).err,
            "kplog: " + to +
                ": answers 401; --user and --password-file say who sends\n"
                "kplog: 0 records: 0 stored, 0 bad\n");
  EXPECT_EQ(folder.ship("till", "shop", to, "--once").err, "kplog: 10 records: 10 stored, 0 bad\n");
  std::vector<std::string> bodies;
  while (bodies.empty() || bodies.back() != "alice logged in on port 319")
    for (const json& record : log_records(receiver.request()["request"]))
      bodies.push_back(record["body"]["stringValue"]);
  std::vector<std::string> expected = pipeline_messages(0, 320);
  // The batch that was answered with 401; and lines of a segment stand in a batch of their own.
  const std::vector<std::string> again = pipeline_messages(310, 320);
  const auto repeated = std::search(bodies.begin() + 310, bodies.end(), again.begin(), again.end());
  bodies.erase(bodies.begin() + 310, repeated);
  EXPECT_EQ(bodies, expected);
  EXPECT_EQ(folder.ship("till", "shop", to, "--verify", 2).err,
            "kplog: otlp+http:// keeps nothing that --verify could read\n");
  EXPECT_EQ(folder.run("render --definitions shop.ldf " + to).err,
            "kplog: otlp+http:// keeps no records that could be shown\n");
}

// The names of metrics in a text.
static std::set<std::string> metrics_in(const std::string& text) {
  static const std::regex metric("kplog_ship_[a-z_]+");
  std::set<std::string> names;
  for (std::sregex_iterator found(text.begin(), text.end(), metric), end; found != end; ++found)
    names.insert(found->str());
  return names;
}

TEST(ShipToPipelines, AServiceSaysWhileAReceiverPutsItOffAndWhatItRefuses) {
  const environment_value no_proxy("no_proxy", "127.0.0.1");
  fleet_folder folder;
  otlp_receiver receiver;
  folder.emit("till", "shop", pipeline_records(0, 10));
  receiver.plan(R"({"containing":"on port","status":503,"headers":{"Retry-After":"1"}})");
  auto words = fleet_folder::ship_words("till", "shop", receiver.address());
  words.insert(words.end(), {"--metrics", "metrics.prom"});
  running_command sender(folder.path(), words);
  const auto is_told = [&](const std::string& line) {
    return comes_true([&] {
      return read_whole_file(folder.file("metrics.prom")).find(line + "\n") != std::string::npos;
    });
  };
  EXPECT_TRUE(is_told("kplog_ship_failing{run=\"till/shop\"} 1"));
  receiver.plan(R"({"containing":"on port 7\"","status":400})");
  EXPECT_TRUE(is_told("kplog_ship_records_total{run=\"till/shop\",result=\"refused\"} 1"));
  EXPECT_TRUE(is_told("kplog_ship_failing{run=\"till/shop\"} 0"));
  EXPECT_TRUE(is_told("kplog_ship_records_total{run=\"till/shop\",result=\"stored\"} 9"));
  sender.signal(SIGTERM);
  const command_end end = sender.wait_for_end();
  EXPECT_EQ(end.status, 1);
  EXPECT_EQ(metrics_in(read_whole_file(folder.file("metrics.prom"))),
            metrics_in(documentation_page("shipping.md")));
  EXPECT_THAT(end.err, testing::HasSubstr("kplog: shop.20261115.0001.jsonl:8: is refused by " +
                                          receiver.address() + ": it answers 400\n"));
  EXPECT_THAT(end.err, testing::EndsWith("kplog: 10 records: 9 stored, 1 refused, 0 bad\n"));
}

TEST(ShipToPipelines, SendsAJournalToAReceiverOfSyslog) {
  fleet_folder folder;
  const tls_authority authority;
  rsyslog_server server(authority, authority.issue("localhost"));
  const std::string options = "--once --tls-ca '" + authority.file() + "'";
  folder.emit("till", "shop", pipeline_records(0, 300));
  EXPECT_EQ(folder.ship("till", "shop", server.address(), options).err,
            "kplog: 300 records: 300 stored, 0 bad\n");
  server.kill();
  folder.emit("till", "shop", pipeline_records(300, 400));
  EXPECT_EQ(folder.ship("till", "shop", server.address(), options, 3).err,
            "kplog: " + server.address() +
                ": cannot connect: Connection refused\n"
                "kplog: 0 records: 0 stored, 0 bad\n");
  server.start_again();
  EXPECT_EQ(folder.ship("till", "shop", server.address(), options).err,
            "kplog: 100 records: 100 stored, 0 bad\n");
  std::vector<std::string> messages;
  for (const json& message : server.messages(400)) {
    messages.push_back(message["message"].get<std::string>().substr(3));  // behind the mark
    EXPECT_EQ(message["host"], "till");
    EXPECT_EQ(message["parsed"]["attributes@0"]["share"], "2");
  }
  // rsyslog may write by several threads.
  EXPECT_THAT(messages, testing::UnorderedElementsAreArray(pipeline_messages(0, 400)));
}
