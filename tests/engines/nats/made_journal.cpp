#include "tests/engines/nats/made_journal.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "engines/nats/engine.h"
#include "tests/engines/nats/nats_servers.h"

void made_segment::end_line(std::string_view text) {
  const uint64_t before = ends_.empty() ? 0 : ends_.back().bytes;
  ends_.push_back({before + text.size() + 1, text.size() + 1, check_sum(text)});
}

void made_segment::add(std::string text, std::optional<uint32_t> event,
                       std::optional<unsigned> level, std::optional<int64_t> time) {
  const std::string& kept = texts_.emplace_back(std::move(text));
  end_line(kept);
  records_.push_back({.text = kept,
                      .line = lines(),
                      .digest = ends_.back().digest,
                      .event = event,
                      .level = level,
                      .time = time});
}

void made_segment::add_blank_line() {
  end_line("");
}

segment_position made_segment::position(uint64_t lines) const {
  segment_position position{
      .segment = name_, .first = ends_.empty() ? 0 : ends_.front().digest, .extent = {}};
  if (lines == 0) return position;
  const line_end& end = ends_[lines - 1];
  position.extent = {.lines = lines, .bytes = end.bytes, .last = end.size, .digest = end.digest};
  return position;
}

std::span<const shipped_record> made_segment::between(uint64_t from, uint64_t to) const {
  const auto begin = std::ranges::upper_bound(records_, from, {}, &shipped_record::line);
  const auto end = std::ranges::upper_bound(records_, to, {}, &shipped_record::line);
  return {begin, end};
}

std::vector<placed_text> placed_texts(const journal_identity& journal,
                                      const made_segment& segment) {
  std::vector<placed_text> texts;
  for (const shipped_record& record : segment.records())
    texts.emplace_back(journal.host, journal.journal, segment.name(), record.line, record.text);
  return texts;
}

std::vector<placed_text> placed_texts(record_archive& archive) {
  std::vector<placed_text> texts;
  archived_record record;
  while (archive.next(record, std::chrono::milliseconds(0)))
    texts.emplace_back(record.journal.host, record.journal.journal, record.segment, record.line,
                       record.text);
  return texts;
}

std::string refusal(const engine_options& options) {
  try {
    nats_engine.open(options)->positions({"web1", "/var/log/shop/shop"});
  } catch (const engine_error& error) {
    return error.what();
  }
  return "";
}

std::string difference_of(const std::vector<placed_text>& found,
                          const std::vector<placed_text>& expected) {
  const auto [one, other] = std::ranges::mismatch(found, expected);
  if (one == found.end() && other == expected.end()) return "";
  const auto told = [](const auto& list, auto at) {
    if (at == list.end()) return std::string("nothing");
    const auto& [host, journal, segment, line, text] = *at;
    return host + " " + segment + ":" + std::to_string(line) + " " + text.substr(0, 100);
  };
  return std::to_string(found.size()) + " records of " + std::to_string(expected.size()) + "; " +
         told(found, one) + " instead of " + told(expected, other);
}

store_result store_lines(ship_engine& engine, const journal_identity& journal,
                         const made_segment& segment, uint64_t from, uint64_t to,
                         const record_kit& kit) {
  const store_result stored = engine.store({.journal = journal,
                                            .kit = kit,
                                            .before = segment.position(from),
                                            .after = segment.position(to),
                                            .records = segment.between(from, to)});
  const store_result settled = engine.settle();
  EXPECT_EQ(stored.batches + settled.batches, 1U);
  return {.batches = 1, .known = stored.known + settled.known};
}

static uint64_t lines_there(ship_engine& engine, const journal_identity& journal,
                            const made_segment& segment) {
  const auto positions = engine.positions(journal);
  for (const segment_position& position : positions.value_or(std::vector<segment_position>{}))
    if (position.segment == segment.name() && position.first == segment.position(0).first &&
        position.extent == segment.position(position.extent.lines).extent)
      return position.extent.lines;
  return 0;
}

void send_segment(ship_engine& engine, const journal_identity& journal, const made_segment& segment,
                  uint64_t batch, std::atomic<uint64_t>* stored) {
  nats_eventually([&] {
    uint64_t from = lines_there(engine, journal, segment);
    while (from < segment.lines()) {
      const uint64_t to = std::min(from + batch, segment.lines());
      store_lines(engine, journal, segment, from, to);
      from = to;
      if (stored != nullptr) *stored = from;
    }
  });
}
