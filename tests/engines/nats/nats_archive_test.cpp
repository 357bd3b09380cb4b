#include <gtest/gtest.h>

#include <algorithm>

#include "engines/nats/engine.h"
#include "engines/nats/link.h"
#include "engines/nats/stream_reader.h"
#include "tests/engines/nats/made_journal.h"
#include "tests/engines/nats/nats_servers.h"

// A text that does not compress.
static std::string noise(size_t size, uint64_t seed) {
  std::string text;
  while (text.size() < size) {
    seed = seed * 6364136223846793005 + 1442695040888963407;
    text += static_cast<char>(' ' + (seed >> 57) % 90);
  }
  return text;
}

static std::vector<placed_text> asked(const engine_options& options, const archive_query& query) {
  return placed_texts(*nats_engine.ask(options, query));
}

static std::vector<placed_text> joined(std::vector<placed_text> one,
                                       const std::vector<placed_text>& other) {
  one.insert(one.end(), other.begin(), other.end());
  return one;
}

TEST(NatsArchive, HandsOutRecordsOnceAndByTheirPlacesHoweverTheyCame) {
  const nats_servers servers;
  const engine_options options = servers.options();
  const journal_identity plain{"web1.example", "/var/log/shop/shop"};
  const journal_identity odd{"a b>*.\x01\xFF%", "/tmp/\xFF/x.*\n"};
  const std::string empty;
  const journal_identity nameless{empty, empty};
  made_segment first("shop.20261115.0001.jsonl");
  for (int i = 0; i < 3000; ++i) {
    first.add("{\"event\":" + std::to_string(1001 + i % 7) + ",\"n\":" + std::to_string(i) + "}",
              1001 + i % 7, i % 10, 1'794'700'000 + i);
    if (i % 500 == 0) first.add_blank_line();
    if (i == 1000) first.add(noise(16'000'000, 7), 1001, 3);
    if (i == 2000) first.add(std::string(3'000'000, 'x') + "\"\\\xE3\x81\x82", 1001, 3);
  }
  made_segment second("shop.20261116.0001.jsonl");
  for (int i = 0; i < 100; ++i) second.add("two " + std::to_string(i), 1001, {});
  made_segment unknown("x.*\n.20261115.0001.jsonl");
  for (int i = 0; i < 100; ++i) unknown.add("odd " + std::to_string(i), {}, {});
  const auto engine = nats_engine.open(options);
  store_lines(*engine, plain, second, 0, 50);
  send_segment(*engine, nameless, unknown, 1000);
  send_segment(*engine, plain, first, 700);
  send_segment(*engine, odd, unknown, 7);
  store_lines(*engine, plain, first, 900, 1900);  // again, cut otherwise
  store_lines(*engine, plain, second, 20, 100);

  const auto all_plain = joined(placed_texts(plain, first), placed_texts(plain, second));
  const auto all =
      joined(joined(placed_texts(nameless, unknown), placed_texts(odd, unknown)), all_plain);
  EXPECT_EQ(difference_of(asked(options, {}), all), "");
  EXPECT_EQ(difference_of(asked(options, {.hosts = {"web1.example"}}), all_plain), "");
  EXPECT_EQ(difference_of(asked(options, {.hosts = {"web?.ex*"}}), all_plain), "");
  EXPECT_EQ(
      difference_of(asked(options, {.hosts = {odd.host, "nobody"}}), placed_texts(odd, unknown)),
      "");
  EXPECT_EQ(difference_of(asked(options, {.hosts = {""}}), placed_texts(nameless, unknown)), "");

  // By events and levels; those that are not known may fit.
  const archive_query narrow{.groups = {{.events = {{1002}}}, {.events = {{1003}}}},
                             .hosts = {"*1.example", "a b*"},
                             .lowest_level = 4,
                             .highest_level = 5};
  std::vector<placed_text> fitting = placed_texts(odd, unknown);
  for (const shipped_record& record : first.records())
    if ((record.event == 1002U || record.event == 1003U) &&
        (record.level == 4U || record.level == 5U))
      fitting.emplace_back(plain.host, plain.journal, first.name(), record.line, record.text);
  EXPECT_EQ(difference_of(asked(options, narrow), fitting), "");
}

// All that arrive until one has this text.
static std::vector<std::string> arrived_up_to(record_archive& archive, const std::string& last) {
  std::vector<std::string> texts;
  archived_record record;
  while (texts.empty() || texts.back() != last) {
    if (!archive.next(record, std::chrono::minutes(2))) {
      ADD_FAILURE() << "nothing comes behind " << texts.size() << " records";
      break;
    }
    texts.emplace_back(record.text);
  }
  return texts;
}

// Removes what the server has of those who read the stream, as the death of one of several may.
static void remove_subscriptions(const engine_options& options, const char* stream) {
  nats_link link(options);
  jsErrCode code{};
  jsConsumerNamesList* names = nullptr;
  ASSERT_EQ(js_ConsumerNames(&names, link.jetstream(), stream, nullptr, &code), NATS_OK);
  EXPECT_GT(names->Count, 0);
  for (int i = 0; i < names->Count; ++i)
    EXPECT_EQ(js_DeleteConsumer(link.jetstream(), stream, names->List[i], nullptr, &code), NATS_OK);
  jsConsumerNamesList_Destroy(names);
}

TEST(NatsArchive, FollowsOnWhenTheServerForgetsWhoFollows) {
  nats_servers servers;
  const engine_options options = servers.options();
  const journal_identity journal{"web1", "/var/log/shop/shop"};
  made_segment segment("shop.20261115.0001.jsonl");
  for (int i = 0; i < 20; ++i) segment.add("record " + std::to_string(i), 1001, 3);
  const auto engine = nats_engine.open(options);
  store_lines(*engine, journal, segment, 0, 5);
  const auto archive = nats_engine.ask(options, {.follows = true});
  EXPECT_EQ(arrived_up_to(*archive, "record 4").size(), 5U);
  archived_record none;
  EXPECT_FALSE(archive->next(none, std::chrono::milliseconds(0)));
  for (const uint64_t from : {5U, 10U, 15U}) {
    remove_subscriptions(options, "KPLOG");
    store_lines(*engine, journal, segment, from, from + 5);
    EXPECT_EQ(arrived_up_to(*archive, "record " + std::to_string(from + 4)).size(), 5U);
  }
}

TEST(NatsArchive, FollowsAStreamThatNumbersItsMessagesAnew) {
  nats_servers servers;
  const engine_options options = servers.options();
  made_segment segment("shop.20261115.0001.jsonl");
  for (int i = 0; i < 20; ++i) segment.add("record " + std::to_string(i), 1000 + i, 3);
  store_lines(*nats_engine.open(options), {"web1", "/x"}, segment, 0, 5);
  const auto archive = nats_engine.ask(options, {.follows = true});
  EXPECT_EQ(arrived_up_to(*archive, "record 4").size(), 5U);
  store_lines(*nats_engine.open(options), {"web1", "/x"}, segment, 5, 20);
  EXPECT_EQ(arrived_up_to(*archive, "record 19").size(), 15U);
  for (const uint64_t lines : {12U, 7U}) {
    nats_link link(options);
    ASSERT_EQ(js_DeleteStream(link.jetstream(), "KPLOG", nullptr, nullptr), NATS_OK);
    const journal_identity journal{"web" + std::to_string(lines), "/x"};
    store_lines(*nats_engine.open(options), journal, segment, 0, lines);
    EXPECT_EQ(arrived_up_to(*archive, "record " + std::to_string(lines - 1)).size(), lines);
  }
}

TEST(NatsArchive, FollowsRecordsByArrivalAndTellsOfKitsAndJournals) {
  nats_servers servers(1, "max_payload: 65536\n");
  const engine_options options = servers.options();
  const journal_identity one{"web1", "/var/log/shop/shop"};
  const journal_identity two{"web2", "/var/log/shop/shop"};
  made_segment segment("shop.20261115.0001.jsonl");
  for (int i = 0; i < 20; ++i)
    segment.add("record " + std::to_string(i), 1001, 3, 1'794'700'000 + i);
  segment.add(noise(3'000'000, 3), 1002, 3);
  segment.add("last", 1001, 3);
  const record_kit old_kit{"old kit"};
  const record_kit new_kit{noise(2'500'000, 9)};
  const auto engine = nats_engine.open(options);
  store_lines(*engine, one, segment, 0, 5, old_kit);
  store_lines(*engine, two, segment, 0, 5, new_kit);

  const auto archive = nats_engine.ask(options, {.hosts = {"web1"}, .follows = true});
  EXPECT_EQ(arrived_up_to(*archive, "record 4").size(), 5U);
  archived_record none;
  EXPECT_FALSE(archive->next(none, std::chrono::milliseconds(0)));
  store_lines(*engine, one, segment, 0, 10, new_kit);
  store_lines(*engine, two, segment, 5, 10, new_kit);
  EXPECT_EQ(arrived_up_to(*archive, "record 9").size(), 5U);
  servers.kill(0);
  EXPECT_THROW(while (true) archive->next(none, std::chrono::seconds(1)), engine_error);
  servers.start(0);
  nats_eventually([&] { store_lines(*engine, one, segment, 5, 22, new_kit); });
  nats_eventually([&] { archive->kits(); });
  const auto later = arrived_up_to(*archive, "last");
  EXPECT_EQ(later.size(), 12U);
  EXPECT_TRUE(std::ranges::count(later, segment.records()[20].text) == 1);

  // Kits are those of the hosts, the newest last.
  const auto kits = archive->kits();
  ASSERT_EQ(kits.size(), 2U);
  EXPECT_EQ(kits[0].kit.bytes, old_kit.bytes);
  ASSERT_EQ(kits[0].users.size(), 1U);
  EXPECT_EQ(kits[0].users[0].journal, one);
  EXPECT_TRUE(kits[1].kit.bytes == new_kit.bytes);
  ASSERT_EQ(kits[1].users.size(), 1U);
  EXPECT_EQ(kits[1].users[0].journal, one);
  EXPECT_EQ(nats_engine.ask(options, {.hosts = {"web2"}})->kits().size(), 1U);
  EXPECT_EQ(nats_engine.ask(options, {})->kits().at(1).users.size(), 2U);

  // The fleet.
  engine->tell(two, {.waiting_bytes = 77, .given_up = 5, .is_given_up_exact = false});
  const auto fleet = nats_engine.view(options);
  const auto rows = fleet->rows();
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].journal, one);
  EXPECT_EQ(rows[0].records, 22U);
  EXPECT_EQ(rows[0].newest, 1'794'700'019);
  EXPECT_TRUE(rows[0].told);
  EXPECT_EQ(rows[1].records, 10U);
  EXPECT_EQ(rows[1].state.waiting_bytes, 77U);
  EXPECT_EQ(rows[1].state.given_up, 5U);
  EXPECT_FALSE(rows[1].state.is_given_up_exact);
  const day_counts counts{{{"20261115", 1001}, 21}, {{"20261115", 1002}, 1}};
  EXPECT_EQ(fleet->counts(one, "20261115"), counts);
  EXPECT_EQ(fleet->counts(one, "20261116"), day_counts{});
  try {
    fleet->prune("20261115");
    FAIL();
  } catch (const engine_error& error) {
    EXPECT_EQ(error.what(),
              options.address +
                  ": JetStream removes records by the limits of the stream KPLOG "
                  "(max_age, max_bytes), and not by days: set these with the tool of NATS");
  }
}
