// Streams that are there already, and that others set up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engines/nats/engine.h"
#include "engines/nats/link.h"
#include "tests/engines/nats/made_journal.h"
#include "tests/engines/nats/nats_servers.h"

using testing::ElementsAre;
using testing::StartsWith;

// Has the stream made or set as that tells: "CREATE", "UPDATE".
static void set_stream(const nats_link& link, const std::string& operation,
                       const std::string& settings) {
  const std::string text = R"({"name":"KPLOG","storage":"file",)" + settings + "}";
  natsMsg* answer = nullptr;
  ASSERT_EQ(natsConnection_Request(&answer, link.connection(),
                                   ("$JS.API.STREAM." + operation + ".KPLOG").c_str(), text.data(),
                                   static_cast<int>(text.size()), 60'000),
            NATS_OK);
  const nats_message owned(answer);
  ASSERT_EQ(nats_bytes(owned).find("\"error\""), std::string::npos) << nats_bytes(owned);
}

static void delete_stream(const nats_link& link) {
  ASSERT_EQ(js_DeleteStream(link.jetstream(), "KPLOG", nullptr, nullptr), NATS_OK);
}

TEST(NatsStreams, ThatCannotKeepRecordsAreRefused) {
  const nats_servers servers;
  engine_options options = servers.options();
  std::vector<std::string> told;
  options.tell = [&](const std::string& text) { told.push_back(text); };
  const nats_link link(options);
  const std::string at = options.address + ": the stream KPLOG ";
  const std::string subjects = R"("subjects":["kplog.*.*.*"])";
  const std::string good = subjects + R"(,"discard":"new")";
  for (const auto& [settings, error] :
       {std::pair{std::string(R"("subjects":["other.*"])"), "does not take the subjects"},
        std::pair{good + R"(,"no_ack":true)", "acknowledges nothing (no_ack)"},
        std::pair{good + R"(,"retention":"workqueue")", "removes what was read"}}) {
    set_stream(link, "CREATE", settings);
    EXPECT_THAT(refusal(options), StartsWith(at + error));
    delete_stream(link);
  }
  set_stream(link, "CREATE", good);
  set_stream(link, "UPDATE", good + R"(,"sealed":true)");
  EXPECT_EQ(refusal(options), at + "is sealed");
  delete_stream(link);
  EXPECT_TRUE(told.empty());

  // One that is set otherwise and can keep records stays as it is, and is told once a connection.
  set_stream(link, "CREATE", subjects + R"(,"discard":"old")");
  const auto engine = nats_engine.open(options);
  const journal_identity journal{"web1", "/var/log/shop/shop"};
  made_segment segment("shop.20261115.0001.jsonl");
  for (int i = 0; i < 20; ++i) segment.add("record " + std::to_string(i), 1001, 3);
  store_lines(*engine, journal, segment, 0, 10);
  store_lines(*engine, journal, segment, 10, 20);
  EXPECT_THAT(told,
              ElementsAre(at + "removes its oldest records when it is full (discard \"old\")"));

  // What the stream has removed since is not counted; the fleet tells what was stored of segments
  // of which something is left.
  const auto told_records = [&] { return nats_engine.view(options)->rows().at(0).records; };
  jsOptions first_message{};
  ASSERT_EQ(jsOptions_Init(&first_message), NATS_OK);
  first_message.Stream.Purge.Sequence = 2;
  ASSERT_EQ(js_PurgeStream(link.jetstream(), "KPLOG", &first_message, nullptr), NATS_OK);
  EXPECT_EQ(told_records(), 20U);
  EXPECT_EQ(nats_engine.view(options)->counts(journal, ""), (day_counts{{{"20261115", 1001}, 10}}));
  ASSERT_EQ(js_PurgeStream(link.jetstream(), "KPLOG", nullptr, nullptr), NATS_OK);
  EXPECT_EQ(told_records(), 0U);
  EXPECT_EQ(nats_engine.view(options)->counts(journal, ""), day_counts{});
}
