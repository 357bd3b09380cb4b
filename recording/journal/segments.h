// The segments of a journal, as they lie in its folder (docs/journal.md).
#ifndef RECORDING_JOURNAL_SEGMENTS_H
#define RECORDING_JOURNAL_SEGMENTS_H

#include <sys/stat.h>
#include <time.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "recording/files/compression.h"
#include "recording/files/dated_name.h"

// One of the forms that a segment may have: plain lines, or these compressed.
struct segment_file {
  uintmax_t size = 0;
  timespec written{};  // last
};

struct journal_segment {
  log_day day;
  unsigned serial = 0;
  std::string name;  // of the plain form: "NAME.YYYYMMDD.NNNN.jsonl"
  std::optional<segment_file> plain;
  std::optional<segment_file> compressed;  // both are there while one is made of the other
  bool has_index = false;
  // There is a compressed form, or an index, that is being made, or was.
  bool has_unfinished = false;
  bool has_unfinished_index = false;

  std::string compressed_name() const { return name + std::string(compressed_ending); }
  std::string unfinished_name() const { return compressed_name() + std::string(unfinished_ending); }
  std::string index_name() const { return name + std::string(index_ending); }
  std::string unfinished_index_name() const {
    return index_name() + std::string(unfinished_ending);
  }
  bool is_there() const { return plain || compressed; }
  uintmax_t size() const { return (plain ? plain->size : 0) + (compressed ? compressed->size : 0); }
  // Of the plain form, where there is one. A compressed one has the time of what it was made of.
  timespec written() const { return plain ? plain->written : compressed->written; }
  std::string file_name() const { return plain ? name : compressed_name(); }
};

// All that belongs to the journal in the open folder, by days and serials; also segments of which
// nothing is there but what belongs to them. What is no regular file is none of it. Raises
// file_error, with the folder's path.
std::vector<journal_segment> segments_of(int folder, const std::string& path,
                                         const std::string& name);

// Whether one was written to before the other, or at the same time and is before it in the journal.
bool is_older(const journal_segment& one, const journal_segment& other);

#endif
