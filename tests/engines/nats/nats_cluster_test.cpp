#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "engines/nats/engine.h"
#include "engines/nats/link.h"
#include "tests/engines/nats/made_journal.h"
#include "tests/engines/nats/nats_servers.h"

namespace {

// A cluster of three, a journal that is sent to it, and what happens to the cluster meanwhile.
class NatsCluster : public testing::Test {
 protected:
  NatsCluster()
      : options_(servers_.options()),
        engine_(nats_engine.open(options_)),
        engine_of_other_(nats_engine.open(options_)) {}

  // Sends a segment of many records, and does that when some of them are stored; all have to be
  // stored before the test does anything else.
  void send_while(const std::function<void()>& happening) {
    made_segment& segment = segments_.emplace_back("shop.20261115." + serial() + ".jsonl");
    for (int i = 0; i < 20'000; ++i)
      segment.add(
          "{\"event\":" + std::to_string(1001 + i % 5) + ",\"n\":" + std::to_string(i) + "}",
          1001 + i % 5, 3);
    std::atomic<uint64_t> stored = 0;
    std::atomic<bool> has_ended = false;
    std::thread sender([&] {
      send_segment(*engine_, journal_, segment, 500, &stored);
      has_ended = true;
    });
    while (stored < 2'000 && !has_ended) std::this_thread::yield();
    happening();
    sender.join();
    EXPECT_EQ(stored, segment.lines());
  }

  // All records of the first so many segments, as somebody has them who follows, in any order; what
  // there is of them after three minutes.
  std::vector<placed_text> followed(size_t segments) const {
    const auto archive = nats_engine.ask(options_, {.follows = true});
    std::vector<placed_text> texts;
    archived_record record;
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(3);
    nats_eventually([&] {
      while (texts.size() < segments * 20'000 && std::chrono::steady_clock::now() < end)
        if (archive->next(record, std::chrono::milliseconds(100)))
          texts.emplace_back(record.journal.host, record.journal.journal, record.segment,
                             record.line, record.text);
    });
    std::ranges::sort(texts);
    return texts;
  }

  // What a reader has of it.
  void expect_all_once() {
    const std::vector<placed_text> all = all_texts();
    // A leader that was stopped answers for a moment as if it led still, without what came since.
    nats_eventually([&] {
      const std::string difference =
          difference_of(placed_texts(*nats_engine.ask(options_, {})), all);
      if (!difference.empty()) throw engine_error(difference);
    });
    nats_eventually([&] {
      const auto positions = *nats_engine.open(options_)->positions(journal_);
      if (positions.size() != segments_.size()) throw engine_error("positions are missing");
      for (const segment_position& position : positions)
        if (position.extent.lines != 20'000) throw engine_error("a position is behind");
    });
  }

  std::vector<placed_text> all_texts() const {
    std::vector<placed_text> all;
    for (const made_segment& segment : segments_) {
      const auto texts = placed_texts(journal_, segment);
      all.insert(all.end(), texts.begin(), texts.end());
    }
    return all;
  }

  std::string serial() const {
    const std::string number = std::to_string(segments_.size() + 1);
    return std::string(4 - number.size(), '0') + number;
  }

  nats_servers servers_{3};
  engine_options options_;
  std::unique_ptr<ship_engine> engine_;
  std::unique_ptr<ship_engine> engine_of_other_;
  const journal_identity journal_{"web1.example", "/var/log/shop/shop"};
  std::deque<made_segment> segments_;
};

}  // namespace

TEST_F(NatsCluster, HasAllOnceWhenServersDieAndStopMeanwhile) {
  nats_eventually([&] { engine_->positions(journal_); });
  std::vector<placed_text> seen;
  std::thread watcher([&] { seen = followed(3); });
  const size_t follower = (servers_.leader_of("KPLOG") + 1) % 3;
  send_while([&] { servers_.kill(follower); });
  servers_.start(follower);
  size_t leader = 0;
  send_while([&] {
    leader = servers_.leader_of("KPLOG");
    servers_.kill(leader);
  });
  servers_.start(leader);
  send_while([&] {
    leader = servers_.leader_of("KPLOG");
    servers_.signal(leader, SIGSTOP);
  });
  servers_.signal(leader, SIGCONT);
  expect_all_once();
  watcher.join();
  EXPECT_EQ(difference_of(seen, all_texts()), "");
}

// Sets the most bytes that the stream may have; -1: any. What is beyond them it removes.
static void limit_stream(const engine_options& options, int64_t bytes) {
  nats_eventually([&] {
    nats_link link(options);
    const auto info = link.stream_info("KPLOG");
    info->Config->MaxBytes = bytes;
    jsErrCode code{};
    const natsStatus status = link.ask(
        [&](jsOptions& wait, jsErrCode& error) {
          return js_UpdateStream(nullptr, link.jetstream(), info->Config, &wait, &error);
        },
        code);
    if (status != NATS_OK) link.fail("cannot limit the stream", status);
  });
}

static void wait_for_bytes(const engine_options& options, uint64_t bytes) {
  nats_eventually([&] {
    nats_link link(options);
    if (link.stream_info("KPLOG")->State.Bytes < bytes) throw engine_error("fewer bytes are there");
  });
}

TEST_F(NatsCluster, HoldsRecordsWhileTheStreamIsFull) {
  nats_eventually([&] { engine_->positions(journal_); });
  const journal_identity other_journal{"web2", "/x"};
  made_segment other("shop.20261114.0001.jsonl");
  for (int i = 0; i < 10'000; ++i) other.add("{\"n\":" + std::to_string(i) + "}", 7, 3);
  std::string said;
  limit_stream(options_, 300'000);
  send_while([&] {
    wait_for_bytes(options_, 280'000);
    try {
      store_lines(*engine_of_other_, other_journal, other, 0, other.lines());
    } catch (const engine_error& error) {
      said = error.what();
    }
    limit_stream(options_, -1);
  });
  EXPECT_EQ(said,
            options_.address + ": does not store what it is sent: maximum bytes exceeded [10077]");
  store_lines(*engine_of_other_, other_journal, other, 0, other.lines());
  EXPECT_EQ(difference_of(placed_texts(*nats_engine.ask(options_, {.hosts = {"web2"}})),
                          placed_texts(other_journal, other)),
            "");
  EXPECT_EQ(difference_of(placed_texts(*nats_engine.ask(options_, {.hosts = {"web1.example"}})),
                          placed_texts(journal_, segments_.front())),
            "");
}

TEST_F(NatsCluster, GoesOnWithTwoServersWhileTheThirdHasNoRoom) {
  send_while([] {});
  const size_t full = (servers_.leader_of("KPLOG") + 1) % 3;
  servers_.kill(full);
  servers_.limit_store(full, 1'000'000);
  servers_.start(full);
  send_while([] {});
  send_while([] {});
  EXPECT_LT(servers_.stored_bytes(full, "KPLOG"), 1'500'000);
  for (const size_t other : {(full + 1) % 3, (full + 2) % 3})
    EXPECT_GT(servers_.stored_bytes(other, "KPLOG"), 2'000'000);
  servers_.kill(full);
  servers_.limit_store(full, 0);
  servers_.start(full);
  send_while([] {});
  expect_all_once();
}
