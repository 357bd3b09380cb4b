// Records of a journal as they travel: where each of them stands, and what is known of it.
#ifndef TOOLS_SHIP_SHIPPED_RECORD_H
#define TOOLS_SHIP_SHIPPED_RECORD_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

struct journal_identity {
  std::string host;     // the machine's name
  std::string journal;  // folder and name, "/var/log/shop/shop"

  auto operator<=>(const journal_identity&) const = default;
};

// Digests are check sums of lines without their ends. Two records at one place are two records
// where these differ.

// So far lines of a segment were taken: whole lines, from its first one on.
struct line_extent {
  uint64_t lines = 0;   // blank ones are counted
  uint64_t bytes = 0;   // with their ends
  uint64_t last = 0;    // bytes of the last of them, with its end
  uint64_t digest = 0;  // of that line

  bool operator==(const line_extent&) const = default;
};

// So far an engine has a segment.
struct segment_position {
  std::string segment;  // "shop.20261115.0001.jsonl", whatever form it has by now
  uint64_t first = 0;   // digest of its first line: segments of one name may be several
  line_extent extent;
};

// A line that is a record. What it points to lives as long as its batch.
struct shipped_record {
  std::string_view text;  // as it was written, without its end: UTF-8, without NUL, up to 16 MiB
  uint64_t line = 0;      // in its segment, from 1
  uint64_t digest = 0;    // of the text
  std::optional<uint32_t> event;  // its ID; nothing: no definitions know it
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
