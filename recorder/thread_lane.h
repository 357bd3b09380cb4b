// The calling thread's lane of a recorder.
#ifndef RECORDER_THREAD_LANE_H
#define RECORDER_THREAD_LANE_H

#include <ctime>

#include "recorder/process_mark.h"
#include "recorder/recorder_state.h"
#include "recorder/room.h"

// Of the recorder that the thread used last; at first, and at the thread's end, one of none.
extern __thread recorder_lane* last_lane [[gnu::tls_model("initial-exec")]];

// Null, with the answer set, where the recorder, or the thread, is closed, or no memory is left.
recorder_lane* find_or_make_lane(recorder_gate& gate, kp_LOG_Recorded& answer) noexcept;

// The same. Nothing but a thread's first call makes a lane.
inline recorder_lane* lane_of(recorder_gate& gate, kp_LOG_Recorded& answer) noexcept {
  recorder_lane* const lane = last_lane;
  const bool is_its = lane->recorder == gate.incarnation.load(std::memory_order_relaxed) &&
                      is_this_process(gate.process.load(std::memory_order_relaxed));
  if (is_its) [[likely]]
    return lane;
  return find_or_make_lane(gate, answer);
}

// Of what stood in `current` instead of the lane's last block.
bool enter_without_block(recorder_lane& lane, lane_block* found, kp_LOG_Recorded& answer) noexcept;

// Takes the lane's block away for a call. False where the recorder closes; or where the call comes
// within another one of the thread, which then goes on.
inline bool enter(recorder_lane& lane, kp_LOG_Recorded& answer) noexcept {
  lane_block* const found = lane.current.exchange(recorder_lane::busy());
  if (found == lane.last) [[likely]]  // which is none where none is had
    return true;
  return enter_without_block(lane, found, answer);
}

// Ends such a call: the block is the lane's again.
inline void leave(recorder_lane& lane) noexcept {
  lane.current.store(lane.last, std::memory_order_release);
}
inline kp_LOG_Recorded leave(recorder_lane& lane, kp_LOG_Recorded loss) noexcept {
  lane.state->lose(loss);
  leave(lane);
  return loss;
}

// The kind of an event that a lane was entered for. Null, with the answer set and the lane left,
// where it cannot be recorded; with lost_name nothing is lost yet.
inline const event_kinds::known_fingerprint* known_kind(recorder_lane& lane, uint64_t fingerprint,
                                                        unsigned level,
                                                        kp_LOG_Recorded& answer) noexcept {
  if (level > LOG_LEVEL_HIGH) {
    answer = leave(lane, kp_LOG_Recorded::lost_value);
    return nullptr;
  }
  const auto* const known = lane.state->kinds().find(fingerprint);
  if (known == nullptr) {
    leave(lane);
    answer = kp_LOG_Recorded::lost_name;
  }
  return known;
}

// Without its time.
inline event_head head_of(uint32_t id, uint32_t fingerprint, const event_label& label,
                          event_kind kind) noexcept {
  event_head head{};
  head.event = id;
  head.fingerprint = fingerprint;
  head.level = static_cast<uint8_t>(label.level);
  head.message_index = static_cast<uint16_t>(label.message_index);
  head.kind = kind;
  return head;
}

// Nanoseconds since 1970.
inline uint64_t time_now() noexcept {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

// Whether the last block has room for a frame of that size; otherwise the lane takes another one.
inline bool make_room(recorder_lane& lane, size_t frame_size) noexcept {
  return static_cast<size_t>(lane.end - lane.at) >= frame_size || lane.state->add_block(lane);
}

// The frame at lane.at, which is of that size, counts from here on, whatever happens.
inline void count_frame(recorder_lane& lane, size_t size) noexcept {
  unsigned char* const end = lane.end;
  unsigned char* const at = lane.at + size;
  lane.at = at;
  auto& head = *reinterpret_cast<block_head*>(end - ring_block_size);
  ring_store(head.used, static_cast<uint32_t>(ring_block_room - static_cast<size_t>(end - at)));
}

// Ends a call that has recorded an event.
inline kp_LOG_Recorded finish_event(recorder_lane& lane, recorder_state& state) noexcept {
  lane.recorded.store(lane.recorded.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  state.wake_writer();
  leave(lane);
  return kp_LOG_Recorded::recorded;
}

#endif
