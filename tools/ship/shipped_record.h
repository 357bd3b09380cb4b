// Records of a journal as they travel: where each of them stands, and what is known of it.
#ifndef TOOLS_SHIP_SHIPPED_RECORD_H
#define TOOLS_SHIP_SHIPPED_RECORD_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "recording/journal/sent_positions.h"

struct journal_identity {
  std::string host;     // the machine's name
  std::string journal;  // folder and name, "/var/log/shop/shop"

  auto operator<=>(const journal_identity&) const = default;
};

// A line that is a record. What it points to lives as long as its batch.
struct shipped_record {
  std::string_view text;  // as it was written, without its end: UTF-8, without NUL, up to 16 MiB
  uint64_t line = 0;      // in its segment, from 1
  uint64_t digest = 0;    // of the text: its check_sum
  std::optional<uint32_t> event;  // its ID; nothing: the sender's definitions do not know it
  std::optional<unsigned> level;
  std::optional<int64_t> time;  // seconds since 1970-01-01T00:00:00Z
};

// Definition files and catalogs, by which records are shown elsewhere.
struct record_kit {
  std::string bytes;  // one after the other, see tools/ship/kit.h
};

// Neighbours of one segment. All that it refers to lives as long as it is stored.
struct ship_batch {
  const journal_identity& journal;
  const record_kit& kit;
  segment_position before;                  // what was confirmed of the segment
  segment_position after;                   // what is, when this is stored
  std::span<const shipped_record> records;  // perhaps none: lines that are no records
};

#endif
