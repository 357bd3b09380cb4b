// The bytes of a ring: a file, mapped into memory, that holds events from the call that records
// them until every output has them. It is read by whoever comes after a process that died.
//
//   ring_head, and behind it a text that says what the ring is for (ring_info), 64 KiB in all
//   blocks of 4 KiB: a block_head, and frames, one after the other
//
// A thread writes into a block of its own. What it wrote counts once the block's `used` says so,
// whatever happens to the process afterwards. Numbers are in the machine's own order.
#ifndef RECORDING_RING_RING_FORMAT_H
#define RECORDING_RING_RING_FORMAT_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "base/kp_words.h"
#include "recording/files/ring_start.h"

inline constexpr size_t ring_head_size = size_t{64} << 10;  // with the text
inline constexpr size_t ring_block_size = size_t{4} << 10;
inline constexpr uint32_t ring_layout = 2;

// How events were lost; the numbers are those of kp_LOG_Recorded, and stay.
inline constexpr size_t ring_loss_kinds = 8;

struct ring_head {
  ring_start start;  // `delivered` is by output
  uint32_t layout;
  uint32_t blocks;
  uint32_t info_size;  // bytes of the text behind the head
  uint32_t unused;
  uint64_t info_sum;
  uint64_t assigned;               // the last sequence that was given
  uint64_t lost[ring_loss_kinds];  // events that were lost, so far
  uint64_t told[ring_loss_kinds];  // of these, told in every output
};

struct block_head {
  uint32_t used;    // bytes of whole frames; the last that is written
  uint32_t lane;    // whose events these are, from 1; each thread has a lane of its own
  uint32_t serial;  // of the lane's blocks, from 1
  uint32_t thread;  // the system's number of the thread
};

// What a block is among all that any lane takes.
constexpr uint64_t place_of(const block_head& block) {
  return uint64_t{block.lane} << 32 | block.serial;
}

inline constexpr size_t ring_block_room = ring_block_size - sizeof(block_head);

// An event is one frame, or where a block does not hold it, several in successive blocks.
enum class frame_part : uint32_t { whole = 1, first, middle, last };

struct frame_head {
  uint32_t size;        // with this head; filled up with zeros to a multiple of 8
  uint32_t event_size;  // bytes of the event in this frame
  frame_part part;
  uint32_t unused;
  uint64_t sum;       // frame_sum
  uint64_t sequence;  // 0: none was given; of the first frame
};

// As kp_Time has them.
struct event_zone {
  int16_t bias;
  uint8_t daylight;
  uint8_t unused;
};

// What begins the bytes of an event. Values follow (event_bytes.h).
struct event_head {
  uint64_t time;         // nanoseconds since 1970
  uint32_t event;        // ID
  uint32_t fingerprint;  // of what its definition declares, folded
  event_zone zone;
  uint8_t level;
  uint8_t kind;  // event_kind
  uint16_t message_index;
};

// The head as words: as it stands in the ring, but made in registers.
inline std::array<uint64_t, 3> words_of(const event_head& head) {
  if constexpr (std::endian::native != std::endian::little)
    return std::bit_cast<std::array<uint64_t, 3>>(head);
  return {head.time, head.event | uint64_t{head.fingerprint} << 32,
          std::bit_cast<uint32_t>(head.zone) | uint64_t{head.level} << 32 |
              uint64_t{head.kind} << 40 | uint64_t{head.message_index} << 48};
}

enum event_kind : uint8_t {
  kind_event = 0,     // values follow
  kind_own_time = 1,  // an entry's own time, as time_bytes, and then values
  kind_lost = 2       // lost_bytes
};

// What follows the head of an event that tells of losses.
struct lost_bytes {
  uint32_t kind;   // as ring_head::lost counts them
  uint32_t count;  // since the last such event
  uint64_t total;  // up to it
};

inline constexpr size_t largest_event = size_t{64} << 10;  // bytes, with its head

static_assert(sizeof(ring_head) <= ring_head_size && sizeof(block_head) == 16 &&
              sizeof(frame_head) == 32 && sizeof(event_head) == 24);

constexpr size_t framed_size(size_t event_size) {
  return sizeof(frame_head) + ((event_size + 7) & ~size_t{7});
}

// Mixes a word into a sum, of which no bit is lost.
constexpr uint64_t ring_sum_step(uint64_t sum, uint64_t word) {
  return std::rotl((sum ^ word) * 0x9e3779b97f4a7c15u, 32);
}

// The sum of `size` bytes, whatever stands up to the next multiple of 8.
inline uint64_t ring_sum(uint64_t sum, const void* bytes, size_t size) {
  const char* at = static_cast<const char*>(bytes);
  for (; size >= 8; size -= 8, at += 8) sum = ring_sum_step(sum, KP_word_at<uint64_t>(at));
  uint64_t last = size;
  std::memcpy(&last, at, size);
  return ring_sum_step(sum, last);
}

// The sum of a frame: of where it stands, of its shape, and of its event's words. Every other word
// goes into a sum of its own, so that the processor need not wait for the one before. What stands
// in a block that was taken again is no frame of the new lane's.
class frame_sum {
 public:
  // `place` is place_of the block.
  frame_sum(uint64_t place, size_t event_size, frame_part part)
      : next_(place), other_(event_size | uint64_t{shape_of(part)} << 32) {}

  void add(uint64_t word) {
    next_ = ring_sum_step(next_, word);
    std::swap(next_, other_);
  }
  void add(uint64_t word, uint64_t word_behind) {
    next_ = ring_sum_step(next_, word);
    other_ = ring_sum_step(other_, word_behind);
  }
  static constexpr uint32_t shape_of(frame_part part) {
    return static_cast<uint32_t>(part) - static_cast<uint32_t>(frame_part::whole);
  }
  uint64_t value() const { return next_ ^ std::rotl(other_, 17); }

 private:
  uint64_t next_, other_;
};

// Of the frame as it stands in the block.
inline uint64_t sum_of(const block_head& block, const frame_head& frame) {
  frame_sum sum(place_of(block), frame.event_size, frame.part);
  const auto* at = reinterpret_cast<const char*>(&frame + 1);
  const char* const end = at + framed_size(frame.event_size) - sizeof frame;
  for (; end - at >= 16; at += 16) sum.add(KP_word_at<uint64_t>(at), KP_word_at<uint64_t>(at + 8));
  if (at != end) sum.add(KP_word_at<uint64_t>(at));
  return sum.value();
}

// Numbers in the ring that another thread, or the next process, reads.
template <class Number>
void ring_store(Number& where, Number value) {
  __atomic_store_n(&where, value, __ATOMIC_RELEASE);
}
template <class Number>
Number ring_load(const Number& where) {
  return __atomic_load_n(&where, __ATOMIC_ACQUIRE);
}

#endif
