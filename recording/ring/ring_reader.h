// Reads events out of the blocks of a ring.
#ifndef RECORDING_RING_RING_READER_H
#define RECORDING_RING_RING_READER_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "recording/ring/ring_file.h"

// An event of a ring.
struct ring_event {
  frame_head* frame = nullptr;  // the first, which has the sequence
  std::string_view bytes = {};
  uint32_t thread = 0;
  std::unique_ptr<std::string> assembled = {};  // the bytes of one that several frames hold

  event_head head() const;
};

// Reads the blocks of one lane, in the order of their serials.
class lane_reader {
 public:
  // Appends the events that are whole in the block between `from` and its `used`; the result is
  // where reading ended. Behind a frame that is damaged nothing is read in the block.
  uint32_t read(block_head& block, uint32_t from, std::vector<ring_event>& events);
  uint64_t damaged() const { return damaged_; }  // frames, so far

 private:
  void go_on_with(const block_head& block);
  void take(const block_head& block, frame_head& frame, std::vector<ring_event>& events);
  void drop_begun();

  ring_event begun_;            // and not whole yet, unless its frame is null
  uint32_t serial_ = 0;         // of the block that was read last
  bool is_behind_gap_ = false;  // nothing has begun since blocks were left out
  uint64_t damaged_ = 0;
};

// All that a ring holds whose owner is gone: first what has a sequence, by it, and then the others,
// by their times. The events of each thread keep their order.
struct ring_contents {
  std::vector<ring_event> events;
  uint64_t damaged = 0;  // frames that were passed over
};

ring_contents contents_of(const ring_file& ring);

#endif
