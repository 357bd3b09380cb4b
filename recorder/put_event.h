// An event of one frame into the block that its thread's lane has.
#ifndef RECORDER_PUT_EVENT_H
#define RECORDER_PUT_EVENT_H

#include <cstring>

#include "recorder/thread_lane.h"

// Values on their way into the ring: whole words, the last of which is filled up.
struct value_words {
  value_words(const unsigned char* values, size_t its_size)
      : bytes(values), size(its_size), rounded((its_size + 7) & ~size_t{7}) {}

  uint64_t word(size_t at) const {
    return KP_word_at<uint64_t>(reinterpret_cast<const char*>(bytes + at));
  }
  void copy(unsigned char* to, frame_sum& sum) const noexcept {
    size_t at = 0;
    for (; at + 16 <= rounded; at += 16) {
      std::memcpy(to + at, bytes + at, 16);
      sum.add(word(at), word(at + 8));
    }
    if (at == rounded) return;
    std::memcpy(to + at, bytes + at, 8);
    sum.add(word(at));
  }

  const unsigned char* bytes;
  size_t size, rounded;
};

// Of a lane that was entered.
[[gnu::always_inline]] inline kp_LOG_Recorded put_event(recorder_lane& lane, uint64_t now,
                                                        event_head head,
                                                        const value_words& values) noexcept {
  static_assert(framed_size(sizeof head) == sizeof(frame_head) + sizeof head);
  const size_t frame_size = framed_size(sizeof head) + values.rounded;
  if (!make_room(lane, frame_size)) return leave(lane, kp_LOG_Recorded::lost_full);
  recorder_state& state = *lane.state;
  state.tell_time(lane, now, head);
  const size_t event_size = sizeof head + values.size;
  auto& frame = *reinterpret_cast<frame_head*>(lane.at);
  auto* to = reinterpret_cast<unsigned char*>(&frame + 1);
  frame_sum sum(lane.place, event_size, frame_part::whole);
  for (const uint64_t word : words_of(head)) {
    std::memcpy(to, &word, sizeof word);
    to += sizeof word;
    sum.add(word);
  }
  values.copy(to, sum);
  frame = {static_cast<uint32_t>(frame_size),
           static_cast<uint32_t>(event_size),
           frame_part::whole,
           0,
           sum.value(),
           0};
  count_frame(lane, frame_size);
  return finish_event(lane, state);
}

#endif
