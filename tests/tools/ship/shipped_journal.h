// A journal whose lines are sent, and what an engine in memory has of them.
#ifndef TESTS_TOOLS_SHIP_SHIPPED_JOURNAL_H
#define TESTS_TOOLS_SHIP_SHIPPED_JOURNAL_H

#include <gtest/gtest.h>
#include <zstd.h>

#include <deque>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "tests/command/emit_fixture.h"
#include "tests/support/temp_folder.h"
#include "tools/find/versions.h"
#include "tools/ship/journal_queue.h"

inline std::string stored_note(const std::string& text, unsigned level = 3) {
  return R"({"version":"2.0","event":1003,"name":"NOTE","level":)" + std::to_string(level) +
         R"(,"time":"2026-11-15T17:02:56+08:00","attributes":{"TEXT":")" + text +
         R"("},"types":{"TEXT":"MBChar2K"},"message_index":0,"message":")" + text + "\"}";
}

inline std::string zstd_frame_of(const std::string& bytes) {
  std::string frame(ZSTD_compressBound(bytes.size()), '\0');
  const size_t size = ZSTD_compress(frame.data(), frame.size(), bytes.data(), bytes.size(), 1);
  EXPECT_FALSE(ZSTD_isError(size));
  frame.resize(size);
  return frame;
}

// What an engine has: each record once, by its identity, and the positions. Batches are on their
// way until they are stored, the oldest first.
struct engine_in_memory {
  using identity = std::tuple<std::string, uint64_t, uint64_t>;  // segment, line, digest
  struct sent_batch {
    segment_position after;
    std::map<identity, std::string> records;
  };

  std::deque<sent_batch> on_its_way;
  std::map<identity, std::string> records;
  std::map<std::pair<std::string, uint64_t>, segment_position> positions;
  size_t repeated = 0;

  void take(const journal_queue& queue) {
    sent_batch& batch = on_its_way.emplace_back(sent_batch{queue.after(), {}});
    for (const shipped_record& record : queue.records())
      batch.records.emplace(identity{batch.after.segment, record.line, record.digest}, record.text);
  }
  // The oldest batch; its position.
  segment_position store() {
    sent_batch batch = std::move(on_its_way.front());
    on_its_way.pop_front();
    for (const auto& record : batch.records)
      if (!records.insert(record).second) ++repeated;
    return positions[{batch.after.segment, batch.after.first}] = batch.after;
  }
  std::vector<segment_position> confirmed() const {
    std::vector<segment_position> all;
    for (const auto& [key, position] : positions) all.push_back(position);
    return all;
  }
  std::string lines() const {
    std::string all;
    for (const auto& [key, text] : records) all += text + "\n";
    return all;
  }
};

class ShippedJournal : public testing::Test {
 protected:
  static constexpr const char* one = "app.20261115.0001.jsonl";
  static constexpr const char* two = "app.20261115.0002.jsonl";
  static constexpr const char* next_day = "app.20261116.0001.jsonl";

  ShippedJournal() { versions_ = versions_of({emit_.path("events.ldf")}, {"", "", "", "en_US"}); }

  const event_set& events() const { return versions_.back()->events(); }
  std::string file(const std::string& name) const { return folder_.file(name); }
  void write(const std::string& name, const std::string& content) const {
    folder_.write(name, content);
  }
  void compress(const std::string& name) const {
    write(name + ".zst", zstd_frame_of(read_whole_file(file(name))));
    std::filesystem::remove(file(name));
  }
  journal_queue queue() { return journal_queue({folder_.path(), "app"}, events(), rules()); }
  queue_rules rules() {
    return {.bad =
                [this](const record_line& line, const record_error& error) {
                  bad_.push_back(std::to_string(line.number) + ": " + error.rule()->code);
                },
            .tell = [this](const std::string& text) { told_.push_back(text); }};
  }
  // All that there is at the moment.
  void send(journal_queue& queue) {
    while (queue.fill()) {
      engine_.take(queue);
      queue.confirm(engine_.store());
    }
  }
  // By a run of its own.
  void send_anew(const sent_positions& known = {}) {
    journal_queue all = queue();
    all.begin(engine_.confirmed(), known);
    send(all);
  }
  // Behind something that happened.
  void send_more(journal_queue& queue) {
    queue.begin(engine_.confirmed(), {});
    send(queue);
  }

  emit_folder emit_;
  temp_folder folder_;
  definition_versions versions_;
  engine_in_memory engine_;
  std::vector<std::string> bad_;
  std::vector<std::string> told_;
};

#endif
