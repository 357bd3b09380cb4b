// What becomes of the segments of a journal (docs/journal.md).
#ifndef RECORDING_JOURNAL_RULES_H
#define RECORDING_JOURNAL_RULES_H

#include <chrono>
#include <cstdint>
#include <optional>

struct journal_rules {
  uintmax_t max_size = uintmax_t{64} << 20;       // bytes that a segment has at most
  bool compresses = false;                        // segments that are done
  std::optional<std::chrono::seconds> keep = {};  // behind a segment's last writing
  std::optional<uintmax_t> keep_size = {};        // bytes of all segments, as they lie on the disk
};

#endif
