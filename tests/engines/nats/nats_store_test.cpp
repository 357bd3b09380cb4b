#include <gtest/gtest.h>

#include "engines/nats/engine.h"
#include "engines/nats/link.h"
#include "engines/nats/state.h"
#include "tests/engines/nats/made_journal.h"
#include "tests/engines/nats/nats_servers.h"

// Does something to a stream as whoever keeps the engine may.
static void change(const engine_options& options,
                   const std::function<natsStatus(jsCtx* jetstream)>& work) {
  nats_link link(options);
  if (const natsStatus status = work(link.jetstream()); status != NATS_OK)
    link.fail("cannot change", status);
}

static std::string error_of(const std::function<void()>& work) {
  try {
    work();
  } catch (const engine_error& error) {
    return error.what();
  }
  return "";
}

// Says that the segment is there, as far as a message with that ID.
static void put_position(const engine_options& options, const journal_identity& journal,
                         const made_segment& segment, const std::string& id) {
  change(options, [&](jsCtx* jetstream) {
    nats_link link(options);
    const nats_message last = link.last_message(
        "KPLOG_STATE", link.subjects().position(journal, segment.position(segment.lines())));
    nats_position position = nats_position_of(nats_bytes(last)).value();
    position.stored.id = id;
    const std::string text = nats_text_of(position);
    return js_Publish(nullptr, jetstream, natsMsg_GetSubject(last.get()), text.data(),
                      static_cast<int>(text.size()), nullptr, nullptr);
  });
}

static uint64_t lines_of(const engine_options& options, const journal_identity& journal) {
  const auto positions = *nats_engine.open(options)->positions(journal);
  EXPECT_LE(positions.size(), 1U);
  return positions.empty() ? 0 : positions.front().extent.lines;
}

TEST(NatsStore, KeepsPositionsWithTheRecordsThatTheyRestOn) {
  const nats_servers servers;
  engine_options options = servers.options();
  const journal_identity journal{"web1.example", "/var/log/shop/shop"};
  made_segment segment("shop.20261115.0001.jsonl");
  for (int i = 0; i < 300; ++i) segment.add("{\"n\":" + std::to_string(i) + "}", 1001 + i % 3, 3);
  segment.add_blank_line();
  const auto engine = nats_engine.open(options);
  EXPECT_EQ(engine->positions(journal)->size(), 0U);
  EXPECT_EQ(store_lines(*engine, journal, segment, 0, 200).known, 0U);
  EXPECT_EQ(store_lines(*engine, journal, segment, 200, 301).known, 0U);
  EXPECT_EQ(store_lines(*engine, journal, segment, 300, 301).known, 0U);  // no record
  EXPECT_EQ(lines_of(options, journal), 301U);
  EXPECT_EQ(store_lines(*engine, journal, segment, 0, 200).known, 200U);
  const auto positions = *nats_engine.open(options)->positions(journal);
  ASSERT_EQ(positions.size(), 1U);
  EXPECT_EQ(positions[0].segment, segment.name());
  EXPECT_EQ(positions[0].extent, segment.position(200).extent);
  EXPECT_EQ(positions[0].first, segment.position(0).first);

  // Another segment of that name is another one, and so is one of another host.
  made_segment restored("shop.20261115.0001.jsonl");
  restored.add("restored", 1001, 3);
  store_lines(*engine, journal, restored, 0, 1);
  EXPECT_EQ(engine->positions(journal)->size(), 2U);
  EXPECT_EQ(engine->positions({"web1", journal.journal})->size(), 0U);

  // What was removed there stays removed.
  change(options,
         [](jsCtx* jetstream) { return js_PurgeStream(jetstream, "KPLOG", nullptr, nullptr); });
  EXPECT_EQ(nats_engine.open(options)->positions(journal)->size(), 2U);
  EXPECT_EQ(placed_texts(*nats_engine.ask(options, {})).size(), 0U);

  // What was lost is sent again. A cluster that loses power may lose its last seconds, and give
  // their numbers to other messages.
  store_lines(*engine, journal, segment, 0, 301);
  EXPECT_EQ(engine->positions(journal)->size(), 2U);
  put_position(options, journal, segment, "the ID of a message that is gone");
  EXPECT_EQ(nats_engine.open(options)->positions(journal)->size(), 1U);
  store_lines(*engine, journal, segment, 0, 301);
  EXPECT_EQ(nats_engine.open(options)->positions(journal)->size(), 2U);
  change(options,
         [](jsCtx* jetstream) { return js_DeleteStream(jetstream, "KPLOG", nullptr, nullptr); });
  EXPECT_EQ(
      error_of([&] { store_lines(*engine, journal, segment, 0, 301); }),
      options.address + ": nobody takes records there: the stream is gone, or without a leader");
  EXPECT_EQ(engine->positions(journal)->size(), 0U);
  send_segment(*engine, journal, segment, 100);
  EXPECT_EQ(
      difference_of(placed_texts(*nats_engine.ask(options, {})), placed_texts(journal, segment)),
      "");
}

static void purge_before(const engine_options& options, uint64_t sequence) {
  change(options, [sequence](jsCtx* jetstream) {
    jsOptions purge;
    jsOptions_Init(&purge);
    purge.Stream.Purge.Sequence = sequence;
    return js_PurgeStream(jetstream, "KPLOG", &purge, nullptr);
  });
}

static uint64_t last_sequence(const engine_options& options) {
  nats_link link(options);
  return link.stream_info("KPLOG")->State.LastSeq;
}

// Sends a message once more, as a server does that stood still with it, and expects that it is
// refused since another came before it.
static void expect_overtaken(const engine_options& options, const nats_message& message) {
  nats_eventually([&] {
    nats_link link(options);
    jsErrCode code{};
    if (js_PublishMsg(nullptr, link.jetstream(), message.get(), nullptr, &code) == NATS_OK)
      ADD_FAILURE() << "it is stored";
    else if (code != JSStreamWrongLastSequenceErr)
      throw engine_error("no leader");
  });
}

// Two senders of one journal, on one server or three.
class NatsStates : public testing::TestWithParam<size_t> {
 protected:
  NatsStates() {
    for (int i = 0; i < 20; ++i) segment_.add("{\"n\":" + std::to_string(i) + "}", 1001, 3);
    segment_.add_blank_line();
    for (const auto& engine : {engine_.get(), other_.get()})
      nats_eventually([&] { engine->positions(journal_); });
  }
  void store(ship_engine& engine, uint64_t from, uint64_t to, uint64_t waiting) {
    nats_eventually([&] { store_lines(engine, journal_, segment_, from, to); });
    nats_eventually([&] { engine.tell(journal_, {.waiting_bytes = waiting}); });
  }
  // The last message of that subject.
  nats_message state(const std::function<std::string(const nats_subjects&)>& subject) const {
    nats_message last;
    nats_eventually([&] {
      nats_link link(options_);
      last = link.last_message("KPLOG_STATE", subject(link.subjects()));
    });
    return last;
  }
  void expect(uint64_t lines, uint64_t waiting) const {
    nats_eventually([&] {
      const auto rows = nats_engine.view(options_)->rows();
      ASSERT_EQ(rows.size(), 1U);
      EXPECT_EQ(lines_of(options_, journal_), lines);
      EXPECT_EQ(rows[0].records, std::min<uint64_t>(lines, 20));
      EXPECT_EQ(rows[0].state.waiting_bytes, waiting);
    });
  }

  nats_servers servers_{GetParam()};
  const engine_options options_ = servers_.options();
  const std::unique_ptr<ship_engine> engine_ = nats_engine.open(options_);
  const std::unique_ptr<ship_engine> other_ = nats_engine.open(options_);
  const journal_identity journal_{"web1.example", "/var/log/shop/shop"};
  made_segment segment_{"shop.20261115.0001.jsonl"};
};

TEST_P(NatsStates, ThatComeLateDoNotTakeThePlaceOfLaterOnes) {
  store(*engine_, 0, 5, 77);
  const nats_message position = state([&](const nats_subjects& subjects) {
    return subjects.position(journal_, segment_.position(5));
  });
  const nats_message told =
      state([&](const nats_subjects& subjects) { return subjects.told(journal_); });
  store(*engine_, 5, 10, 7);
  expect_overtaken(options_, position);
  expect_overtaken(options_, told);
  expect(10, 7);
}

TEST_P(NatsStates, GoOnlyAheadThoughNoSenderKnowsOfTheOther) {
  store(*other_, 0, 15, 3);
  store(*engine_, 0, 21, 1);
  expect(21, 1);
  store(*other_, 15, 18, 2);
  expect(21, 2);
}

INSTANTIATE_TEST_SUITE_P(Servers, NatsStates, testing::Values(1, 3));

TEST(NatsStore, TellsOfSegmentsOfWhichRecordsAreThere) {
  const nats_servers servers;
  const engine_options options = servers.options();
  const journal_identity journal{"web1", "/var/log/shop/shop"};
  made_segment first("shop.20261115.0001.jsonl");
  made_segment second("shop.20261116.0001.jsonl");
  for (int i = 0; i < 100; ++i) first.add("{\"n\":" + std::to_string(i) + "}", 1001 + i % 3, 3, i);
  for (int i = 0; i < 50; ++i) second.add("{\"m\":" + std::to_string(i) + "}", 1001 + i % 3, 3, i);
  const auto engine = nats_engine.open(options);
  const auto fleet = nats_engine.view(options);
  const auto records = [&] {
    const auto rows = fleet->rows();
    EXPECT_EQ(rows.size(), 1U);
    return rows.empty() ? 0 : rows.front().records;
  };
  send_segment(*engine, journal, first, 30);
  const uint64_t end_of_first = last_sequence(options);
  send_segment(*engine, journal, second, 50);
  EXPECT_EQ(records(), 150U);
  purge_before(options, end_of_first);
  EXPECT_EQ(records(), 150U) << "a message of the first is there";
  purge_before(options, end_of_first + 1);
  EXPECT_EQ(records(), 50U);
  purge_before(options, end_of_first + 2);
  EXPECT_EQ(records(), 50U);
  change(options,
         [](jsCtx* jetstream) { return js_PurgeStream(jetstream, "KPLOG", nullptr, nullptr); });
  EXPECT_EQ(records(), 0U);
  change(options,
         [](jsCtx* jetstream) { return js_DeleteStream(jetstream, "KPLOG", nullptr, nullptr); });
  EXPECT_EQ(records(), 0U);
  send_segment(*nats_engine.open(options), journal, first, 100);
  EXPECT_EQ(records(), 100U) << "the second was in another stream of that name";
}
