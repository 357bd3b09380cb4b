#include "recorder/thread_lane.h"

#include <new>
#include <utility>

// Leaves them when the thread ends.
struct thread_lanes {
  ~thread_lanes();

  std::vector<std::shared_ptr<recorder_lane>> lanes;
};

// Of no recorder's incarnation.
static recorder_lane lane_of_none(UINT64_MAX, 0, 0);
__thread recorder_lane* last_lane [[gnu::tls_model("initial-exec")]] = &lane_of_none;
static thread_local thread_lanes own_lanes;
// Whether they are gone: the thread is at its end, and static objects may record yet.
constinit static thread_local bool has_thread_left = false;

thread_lanes::~thread_lanes() {
  has_thread_left = true;
  last_lane = &lane_of_none;
  for (const auto& lane : lanes) lane->is_left.store(true, std::memory_order_release);
}

// In a child of fork: a recorder of its own, with the same options. What the parent's threads were
// doing when it was made, mutexes included, is left as it is.
static void begin_in_child(recorder_gate& gate) noexcept {
  const uint64_t mark = process_mark();
  const uint64_t beginning = mark | (uint64_t{1} << 63);
  uint64_t before = gate.process.load();
  if (before == mark) return;
  if (before != beginning && gate.process.compare_exchange_strong(before, beginning)) {
    new (&gate.mutex) std::mutex;
    recorder_state::abandon(std::move(gate.state));
    if (gate.incarnation.exchange(0) != 0) {
      try {
        gate.state = std::make_shared<recorder_state>(gate, false);
        gate.incarnation.store(gate.state->incarnation());
      } catch (const std::exception&) {  // closed, for the child
      }
    }
    gate.process.store(mark);
  }
  while (gate.process.load() != mark) std::this_thread::yield();
}

static std::shared_ptr<recorder_lane> make_lane(recorder_gate& gate) {
  const std::lock_guard hold(gate.mutex);
  if (gate.state == nullptr) return nullptr;
  return gate.state->make_lane();
}

// Null where the recorder, or the thread, is closed. Raises std::bad_alloc.
static recorder_lane* found_or_made_lane(recorder_gate& gate) {
  if (has_thread_left) return nullptr;
  if (!is_this_process(gate.process.load(std::memory_order_relaxed))) begin_in_child(gate);
  auto& lanes = own_lanes.lanes;
  const uint64_t incarnation = gate.incarnation.load(std::memory_order_acquire);
  if (incarnation == 0) return nullptr;
  for (const auto& lane : lanes)
    if (lane->recorder == incarnation) return last_lane = lane.get();
  std::erase_if(lanes, [](const auto& lane) {
    return lane->current.load(std::memory_order_relaxed) == recorder_lane::closed();
  });
  lanes.reserve(lanes.size() + 1);
  const std::shared_ptr<recorder_lane> lane = make_lane(gate);
  if (lane == nullptr) return nullptr;
  lanes.push_back(lane);
  return last_lane = lane.get();
}

recorder_lane* find_or_make_lane(recorder_gate& gate, kp_LOG_Recorded& answer) noexcept {
  answer = kp_LOG_Recorded::lost_closed;
  try {
    return found_or_made_lane(gate);
  } catch (const std::bad_alloc&) {
    answer = kp_LOG_Recorded::lost_memory;
    return nullptr;
  }
}

bool enter_without_block(recorder_lane& lane, lane_block* found, kp_LOG_Recorded& answer) noexcept {
  if (found == recorder_lane::closed()) {
    lane.current.store(found);
    answer = kp_LOG_Recorded::lost_closed;
    return false;
  }
  if (found == recorder_lane::busy()) {
    answer = kp_LOG_Recorded::lost_full;
    lane.state->lose(answer);
    return false;
  }
  lane.last = nullptr;
  lane.at = lane.end = nullptr;
  return true;
}
