// Records for tests of engines: a journal that is made up, and what an engine has of it.
#ifndef TESTS_ENGINES_NATS_MADE_JOURNAL_H
#define TESTS_ENGINES_NATS_MADE_JOURNAL_H

#include <atomic>
#include <deque>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "recording/text/check_sum.h"
#include "tools/ship/engine.h"

// A segment that grows in memory.
class made_segment {
 public:
  explicit made_segment(std::string name) : name_(std::move(name)) {}

  // A record; what it lives in stays where it is.
  void add(std::string text, std::optional<uint32_t> event, std::optional<unsigned> level,
           std::optional<int64_t> time = {});
  void add_blank_line();
  const std::string& name() const { return name_; }
  uint64_t lines() const { return ends_.size(); }
  const std::vector<shipped_record>& records() const { return records_; }
  // Behind so many lines.
  segment_position position(uint64_t lines) const;
  // The records of the lines behind `from`, up to `to`.
  std::span<const shipped_record> between(uint64_t from, uint64_t to) const;

 private:
  struct line_end {
    uint64_t bytes = 0;
    uint64_t size = 0;
    uint64_t digest = 0;
  };

  void end_line(std::string_view text);

  std::string name_;
  std::deque<std::string> texts_;
  std::vector<shipped_record> records_;
  std::vector<line_end> ends_;
};

// Host, journal, segment, line, text.
using placed_text = std::tuple<std::string, std::string, std::string, uint64_t, std::string>;

// All of a segment.
std::vector<placed_text> placed_texts(const journal_identity& journal, const made_segment& segment);
// All that an archive hands out.
std::vector<placed_text> placed_texts(record_archive& archive);

// What an engine of these options says to whoever asks it for positions; empty: nothing is wrong.
std::string refusal(const engine_options& options);

// Where the two differ first; empty: nowhere.
std::string difference_of(const std::vector<placed_text>& found,
                          const std::vector<placed_text>& expected);

// Stores the lines behind `from`, up to `to`, as one batch.
store_result store_lines(ship_engine& engine, const journal_identity& journal,
                         const made_segment& segment, uint64_t from, uint64_t to,
                         const record_kit& kit = {"kit"});

// Sends the whole segment as a sender does, in batches of so many lines: from where the engine is,
// again behind each error. `stored`, where there is one, is how many lines are.
void send_segment(ship_engine& engine, const journal_identity& journal, const made_segment& segment,
                  uint64_t batch, std::atomic<uint64_t>* stored = nullptr);

#endif
