// How far a journal was sent to an engine: the small file beside it (docs/shipping.md).
#ifndef RECORDING_JOURNAL_SENT_POSITIONS_H
#define RECORDING_JOURNAL_SENT_POSITIONS_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/journal/segment_work.h"

// Digests are check sums of lines without their ends. Two records at one place are two records
// where these differ.

// So far lines of a segment were taken: whole lines, from its first one on.
struct line_extent {
  uint64_t lines = 0;   // blank ones are counted
  uint64_t bytes = 0;   // with their ends
  uint64_t last = 0;    // bytes of the last of them, with its end; at most 64 KiB of these
  uint64_t digest = 0;  // of these bytes

  bool operator==(const line_extent&) const = default;
};

// So far an engine has a segment.
struct segment_position {
  std::string segment = {};  // "shop.20261115.0001.jsonl", whatever form it has by now
  uint64_t first = 0;        // digest of its first line: segments of one name may be several
  line_extent extent = {};
};

// A file as it lay on the disk: another file, or one that was written to, has another stamp.
struct file_stamp {
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t size = 0;
  int64_t seconds = 0;  // when it was written last
  int64_t nanoseconds = 0;

  bool operator==(const file_stamp&) const = default;
};
file_stamp stamp_of(const struct stat& status);

// The same as it was found when the journal was last looked at.
struct sent_segment {
  segment_position position = {};
  uint64_t there = 0;     // bytes of lines that it had
  file_stamp stamp = {};  // of a compressed form that was held against the position
};

// The begin of a file of notes of what was given up; nothing of it where there are no bytes.
struct counted_notes {
  uint64_t bytes = 0;
  uint64_t digest = 0;  // of these bytes

  bool operator==(const counted_notes&) const = default;
};

struct sent_positions {
  std::string to;         // the engine's address
  std::string host;       // as which machine
  uint64_t given_up = 0;  // records that were removed before the engine had them
  bool is_given_up_exact = true;
  counted_notes notes = {};                           // that are in this sum
  std::map<std::string, sent_segment> segments = {};  // by their names
};

// A line of JSON with a check sum over itself, and back; nothing for any other text.
std::string text_of(const sent_positions& positions);
std::optional<sent_positions> sent_positions_of(std::string_view text);

// The name of the file beside the journal of that name.
std::string sent_positions_name(const std::string& journal, const std::string& to,
                                const std::string& host);

// What such a file has; empty where there is none. Raises file_error, also for a link, for what is
// no regular file, and beyond 64 MiB.
std::string sent_positions_text(const std::string& path);

// All such files of the journal, of which there may be one for each engine. One that is damaged,
// or cannot be read, says that nothing was sent. Raises file_error.
std::vector<sent_positions> all_sent_positions(int folder, const journal_place& journal);

// Whether the engine has all of the segment's lines.
bool is_sent(const sent_positions& engine, const journal_segment& segment, uint64_t bytes_of_lines);

// Notes for those who send to the engines, in files beside theirs, that the segment is removed
// before they had all of it; while the journal's lock is held. Raises file_error.
void note_given_up(int folder, const journal_place& journal,
                   const std::vector<sent_positions>& engines, const journal_segment& segment);

struct given_up_notes {
  // Lines of a segment that the engine did not get, where that is known; behind those that it was
  // known to have then. It may have got more of them meanwhile.
  struct noted_lines {
    std::optional<uint64_t> lines = {};
    uint64_t behind = 0;

    bool operator==(const noted_lines&) const = default;
  };
  std::map<std::string, noted_lines> segments = {};  // by their names
  counted_notes all = {};                            // these, and those that were counted before
};

// What was noted for one of them behind those that were counted; all, where the file does not begin
// with these. While the journal's lock is held; raises file_error.
given_up_notes notes_of_given_up(int folder, const journal_place& journal,
                                 const std::string& sent_name, const counted_notes& counted);
// Removes the notes where these are all that there are; called when their sum is saved, while the
// journal's lock is held. False where there are more. Raises file_error.
bool remove_notes_of_given_up(int folder, const journal_place& journal,
                              const std::string& sent_name, const counted_notes& counted);

#endif
