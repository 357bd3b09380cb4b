// Batches as a sender hands them to an engine.
#ifndef TESTS_ENGINES_POSTGRESQL_SHIPPED_BATCH_H
#define TESTS_ENGINES_POSTGRESQL_SHIPPED_BATCH_H

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "recording/text/check_sum.h"
#include "tools/ship/engine.h"

// Lines of a segment, each of them a record.
class shipped_segment {
 public:
  explicit shipped_segment(std::string name = "shop.20261115.0001.jsonl",
                           journal_identity journal = {"host1", "/var/log/shop/shop"})
      : name_(std::move(name)), journal_(std::move(journal)) {}

  shipped_segment(const shipped_segment&) = delete;  // records point to its texts
  shipped_segment& operator=(const shipped_segment&) = delete;

  // Behind the others.
  shipped_segment& add(const std::string& text, std::optional<uint32_t> event = 1001,
                       std::optional<int64_t> time = 1794733376) {
    texts_.push_back(text);
    records_.push_back({.text = texts_.back(),
                        .line = texts_.size(),
                        .digest = check_sum(text),
                        .event = event,
                        .level = 3,
                        .time = time});
    return *this;
  }
  // As kplog stores them: `count` records with an attribute "NUMBER" from `begin` on.
  shipped_segment& add_numbers(int begin, int count, uint32_t event = 1001) {
    for (int i = begin; i < begin + count; ++i) add(numbered(i, event), event, 1794733376 + i);
    return *this;
  }
  static std::string numbered(int number, uint32_t event = 1001) {
    return "{\"version\":\"2.0\",\"event\":" + std::to_string(event) +
           ",\"level\":3,\"time\":\"2026-11-15T17:02:56+08:00\",\"attributes\":{\"NUMBER\":" +
           std::to_string(number) + "},\"types\":{\"NUMBER\":\"UInt4\"},\"message\":\"number " +
           std::to_string(number) + "\"}";
  }

  // How far the segment is behind its first `lines` lines.
  segment_position position(size_t lines) const {
    segment_position position{.segment = name_, .first = check_sum(texts_.at(0)), .extent = {}};
    for (size_t i = 0; i < lines; ++i) position.extent.bytes += texts_[i].size() + 1;
    position.extent.lines = lines;
    if (lines == 0) return position;
    position.extent.last = texts_[lines - 1].size() + 1;
    position.extent.digest = check_sum(texts_[lines - 1]);
    return position;
  }
  // Lines from `begin` to before `end`, counted from 0.
  ship_batch batch(size_t begin, size_t end) const {
    return {.journal = journal_,
            .kit = kit_,
            .before = position(begin),
            .after = position(end),
            .records = std::span(records_).subspan(begin, end - begin)};
  }
  ship_batch all() const { return batch(0, texts_.size()); }

  void use_kit(const std::string& bytes) { kit_.bytes = bytes; }
  const record_kit& kit() const { return kit_; }
  const journal_identity& journal() const { return journal_; }
  const std::deque<std::string>& texts() const { return texts_; }

 private:
  std::string name_;
  journal_identity journal_;
  record_kit kit_{"a kit"};
  std::deque<std::string> texts_;
  std::vector<shipped_record> records_;
};

#endif
