// How much of a journal is held at a time.
#include "tests/tools/ship/shipped_journal.h"

// The most that a batch has of the queue: records, and bytes of lines.
static std::pair<size_t, uint64_t> largest_batch(journal_queue& queue) {
  std::pair<size_t, uint64_t> largest;
  while (queue.fill()) {
    largest.first = std::max(largest.first, queue.records().size());
    largest.second =
        std::max(largest.second, queue.after().extent.bytes - queue.before().extent.bytes);
    queue.confirm(queue.after());
  }
  return largest;
}

TEST_F(ShippedJournal, ABatchIsBoundedWhateverIsWaiting) {
  constexpr size_t many = 50'000, size_limit = size_t{4} << 20;
  std::string lines;
  for (size_t i = 0; i < many; ++i) lines += stored_note("") + "\n";
  write(one, lines);
  journal_queue small = queue();
  small.begin({}, {});
  const auto [records, bytes] = largest_batch(small);
  EXPECT_LE(records, 20'000U);
  EXPECT_LE(bytes, size_limit + 2 * stored_note("").size());
  EXPECT_GT(bytes, size_limit / 2);

  const std::string large = stored_note(std::string(300'000, 'x')) + "\n";
  lines.clear();
  for (size_t i = 0; i < 60; ++i) lines += large;
  write(two, lines);
  small.begin({}, {});
  journal_queue other = queue();
  other.begin({}, {});
  EXPECT_LE(largest_batch(other).second, size_limit + 2 * large.size());

  queue_rules little = rules();
  little.batch_bytes = size_t{256} << 10;
  journal_queue small_batches({folder_.path(), "app"}, events(), little);
  small_batches.begin({}, {});
  EXPECT_LE(largest_batch(small_batches).second, 2 * little.batch_bytes + large.size());
}
