// The road of an event into the ring: nothing here takes a lock or allocates, but what makes a
// thread's lane at its first call.
#include "recorder/put_event.h"
#include "recorder/room.h"

kp_LOG_Recorded _kp_LOG_recorder_record(_kp_LOG_recorder_gate& gate, uint64_t fingerprint,
                                        uint32_t id, unsigned level, const unsigned char* values,
                                        size_t size) noexcept {
  const uint64_t now = time_now();  // first: a call in between costs registers
  kp_LOG_Recorded answer = kp_LOG_Recorded::lost_closed;
  recorder_lane* const lane = lane_of(whole(gate), answer);
  if (lane == nullptr || !enter(*lane, answer)) return answer;
  const auto* const known = known_kind(*lane, fingerprint, level, answer);
  if (known == nullptr) return answer;
  return put_event(*lane, now, head_of(id, known->folded, {level}, kind_event), {values, size});
}

kp_LOG_Recorded _kp_LOG_recorder_reject(_kp_LOG_recorder_gate& gate) noexcept {
  kp_LOG_Recorded answer = kp_LOG_Recorded::rejected;
  recorder_lane* const lane = lane_of(whole(gate), answer);
  if (lane == nullptr) return answer;
  lane->rejected.store(lane->rejected.load(std::memory_order_relaxed) + 1,
                       std::memory_order_relaxed);
  return kp_LOG_Recorded::rejected;
}

std::shared_ptr<recorder_state> state_behind(_kp_LOG_recorder_gate& gate,
                                             kp_LOG_Recorded& answer) noexcept {
  const recorder_lane* const lane = lane_of(whole(gate), answer);
  return lane == nullptr ? nullptr : lane->state;
}
