// What is in a segment: the small file beside it (docs/journal.md).
#ifndef RECORDING_JOURNAL_SEGMENT_INDEX_H
#define RECORDING_JOURNAL_SEGMENT_INDEX_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "recording/records/stored_start.h"

// Of the first bytes of a segment, which are whole lines.
struct segment_index {
  std::string file;    // the segment's name
  uint64_t size = 0;   // bytes of that file, all of which this is about
  uint64_t lines = 0;  // bytes of its lines: as many, unless it is compressed
  uint64_t records = 0;
  uint64_t others =
      0;  // lines that do not begin as the stored form does, and are not told of below
  // Of the records' times, in seconds since 1970-01-01T00:00:00Z; where there are records.
  int64_t first = 0;
  int64_t last = 0;
  // How many records of which events: IDs and names, these as JSON has them.
  std::map<std::pair<uint32_t, std::string>, uint64_t> events = {};

  // Whether it is about all of that file.
  bool fits(std::string_view name, uint64_t bytes) const { return file == name && size == bytes; }
};

// A line of JSON with a check sum over itself, and back; nothing for any other text.
std::string text_of(const segment_index& index);
std::optional<segment_index> segment_index_of(std::string_view text);

// No index has more bytes.
inline constexpr size_t longest_index = size_t{16} << 20;

// Makes an index of lines, as they come.
class segment_scan {
 public:
  // Goes on behind what is known.
  explicit segment_scan(segment_index known = {}) : index_(std::move(known)) {}

  // The next bytes of the segment.
  void take(std::string_view bytes);
  // A line whose end has not come is one of the others.
  segment_index index() const;

 private:
  void take_line(std::string_view line);
  void add_to_rest(std::string_view bytes);

  segment_index index_;
  stored_start_reader reader_;
  std::string rest_;      // of a line whose end has not come, as far as lines are read
  uint64_t dropped_ = 0;  // bytes of that line behind it
  // What the last record counted for: the next is often of the same event.
  uint64_t* last_count_ = nullptr;
  std::pair<uint32_t, std::string> last_event_;
};

#endif
