// What a lock's file says while a batch of a ring's events goes into an output: what becomes of
// which file (docs/text-logs.md). Whoever finds it there can tell how far the batch came, and take
// it back.
#ifndef RECORDING_FILES_DELIVERY_NOTE_H
#define RECORDING_FILES_DELIVERY_NOTE_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/files/ring_start.h"

// Bytes of a file that others replace.
struct replaced_bytes {
  uint64_t offset = 0;
  std::string before;  // shorter where the file ended
  std::string after;
};

// What becomes of a file in a batch: lines are appended, or bytes replaced.
struct noted_file {
  std::string name;
  dev_t device = 0;
  ino_t inode = 0;
  uint64_t size = 0;      // before
  uint64_t appended = 0;  // bytes
  bool is_new = false;    // it was made for the batch
  std::vector<replaced_bytes> replaced = {};
};

// The lines of a note. Each has a check sum, over what is before it too.
class delivery_note_lines {
 public:
  explicit delivery_note_lines(const delivery& of);

  void add(const noted_file& file);
  // The lines since the last call.
  std::string take();

 private:
  void add_line(const std::string& line);

  uint64_t check_ = 0;  // of the last line
  std::string lines_;
};

// A note that was read. Somebody else may have written it.
struct delivery_note {
  // Nothing where it is a note of another kind.
  static std::optional<delivery_note> read(const std::string& text);

  std::string ring_path;
  std::string recorder;
  unsigned output = 0;
  uint64_t first = 0;
  uint64_t last = 0;              // 0: the first line was not finished, nothing was begun
  std::vector<noted_file> files;  // in their order
  // Whether it can be what a delivery wrote, up to the moment of its end: there is nothing behind a
  // line that is not whole.
  bool is_sound = true;
};

#endif
