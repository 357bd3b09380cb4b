// The recorder's thread: reads lanes, brings batches into the outputs, and gives blocks back.
#include <linux/futex.h>
#include <linux/membarrier.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <utility>

#include "recorder/fork_delay.h"
#include "recorder/recorder_state.h"
#include "recording/ring/loss_event.h"

using std::chrono::steady_clock;

static constexpr size_t batch_events = 4096;
static constexpr size_t batch_bytes = size_t{256} << 10;

// A thread that records at a steady rate finds the writer awake, or napping; only after a while
// without events has it to be woken.
static constexpr std::chrono::microseconds nap_length(500);
static constexpr unsigned naps_before_sleep = 200;

// ---- sleeping ----

static long futex(std::atomic<uint32_t>& word, int operation, uint32_t value,
                  const timespec* patience) noexcept {
  return syscall(SYS_futex, &word, operation, value, patience, nullptr, 0);
}

static timespec timespec_of(std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {seconds.count(), (time - seconds).count()};
}

void recorder_state::wake_writer_up() noexcept {
  if (is_asleep_.exchange(0) != 0) futex(is_asleep_, FUTEX_WAKE_PRIVATE, 1, nullptr);
}

// Those who record look at is_asleep_ behind their last store, without a fence: the system puts one
// into all of them, so that either they see it, or their events are seen here.
static bool put_fence_everywhere() {
  return syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0;
}

static bool can_put_fences() {
  return syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
}

// At most to the next second, which has its own work. Whoever records meanwhile wakes the thread.
void recorder_state::sleep() {
  const auto longest =
      can_be_woken_ ? std::chrono::nanoseconds(std::chrono::seconds(1)) : 20 * nap_length;
  const auto left = next_second_ - steady_clock::now();
  if (left <= left.zero()) return;
  const timespec patience = timespec_of(std::min<std::chrono::nanoseconds>(left, longest));
  futex(is_asleep_, FUTEX_WAIT_PRIVATE, 1, &patience);
}

// ---- the loop ----

// Signals are for the program's own threads.
void recorder_state::run() noexcept {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
  pthread_setname_np(pthread_self(), "kplog-recorder");
  writer_thread_.store(std::this_thread::get_id(), std::memory_order_relaxed);
  can_be_woken_ = can_put_fences();
  const kp_log_own_settings::scope scope(settings_);
  faults_.begin();
  while (!has_ended_) {
    try {
      work();
    } catch (const std::exception& error) {
      tell_that_events_wait(error);
      pause_after_failure();
    }
  }
}

void recorder_state::tell_that_events_wait(const std::exception& error) noexcept {
  try {
    faults_.tell(kp_LOG_RecorderFault::event, std::string("events wait: ") + error.what());
  } catch (const std::bad_alloc&) {  // nor is there memory to tell it with
  }
}

// One turn: a batch, or a rest. What was recorded before the ticket was drawn, or before the lanes
// were closed, is seen by the reading that follows.
void recorder_state::work() {
  const bool is_last_reading = are_calls_over_.load();
  const uint64_t ticket = flushes_.last();
  if (pending_.is_empty()) {
    collect(pending_);
    pending_.ticket = ticket;
  }
  const bool is_second = steady_clock::now() >= next_second_;
  if (is_second) do_each_second();
  if (!pending_.is_empty()) {
    is_idle_ = 0;
    is_asleep_.store(0, std::memory_order_relaxed);
    const bool is_delivered = deliver();
    delivery_->keep_up();  // which may make room
    if (!is_delivered) return pause_after_failure();
    if (is_second || are_blocks_scarce()) reclaim_idle_blocks();
    return;
  }
  flushes_.finish(ticket);
  reclaim_idle_blocks();
  if (is_last_reading) return end();
  if (delivery_->keep_up().count() != 0) rest();
}

// First short naps; then is_asleep_ is set, everything is looked at once more, and only then the
// thread sleeps.
void recorder_state::rest() {
  if (++is_idle_ <= naps_before_sleep) {
    const timespec time = timespec_of(nap_length);
    nanosleep(&time, nullptr);
  } else if (is_asleep_.load() == 0) {
    is_asleep_.store(1);
    can_be_woken_ = can_be_woken_ && put_fence_everywhere();
  } else {
    sleep();
    if (is_asleep_.load() == 0) is_idle_ = 0;
  }
}

// Tells what was lost until now, and ends. The ring stays where that fails.
void recorder_state::end() {
  if (!are_losses_told_) {
    are_losses_told_ = true;
    pending_.events = put_losses(*ring_, *loss_block_->head, losses_to_tell(*ring_));
    pending_.are_losses = true;
    if (!pending_.events.empty()) return;
  }
  is_empty_ = true;
  has_ended_ = true;
}

void recorder_state::pause_after_failure() {
  static constexpr std::chrono::milliseconds pause(100);
  const timespec time = timespec_of(pause);
  nanosleep(&time, nullptr);
  has_ended_ = is_patience_over();
}

// ---- reading ----

void recorder_state::collect(batch& to) {
  if (lanes_version_.load(std::memory_order_acquire) != version_seen_) {
    const std::lock_guard hold(lanes_mutex_);
    version_seen_ = lanes_version_.load();
    lanes_seen_ = lanes_;
  }
  to.is_all = true;
  for (size_t step = 0; step < lanes_seen_.size() && to.is_all; ++step) {
    // The next batch begins with the lane that this one ended at.
    if (!collect(*lanes_seen_[(first_lane_ + step) % lanes_seen_.size()], to)) {
      to.is_all = false;
      first_lane_ = (first_lane_ + step) % lanes_seen_.size();
    }
  }
  const auto earlier = [](const ring_event& one, const ring_event& other) {
    return one.head().time < other.head().time;
  };
  if (!std::is_sorted(to.events.begin(), to.events.end(), earlier))
    std::stable_sort(to.events.begin(), to.events.end(), earlier);
}

// False where the batch is full. A block has a next one only when nothing comes into it any more.
bool recorder_state::collect(recorder_lane& lane, batch& to) {
  if (lane.reading == nullptr) {
    lane.reading = lane.first.load(std::memory_order_acquire);
    lane.read = 0;
  }
  while (lane.reading != nullptr) {
    if (to.events.size() >= batch_events) return false;
    lane_block* const next = lane.reading->next.load(std::memory_order_acquire);
    lane.read = lane.reader.read(*lane.reading->head, lane.read, to.events);
    if (next == nullptr) break;
    to.done.emplace_back(&lane, lane.reading);
    lane.reading = next;
    lane.read = 0;
  }
  return true;
}

// ---- a batch ----

// False where an output fails: the same batch is to be delivered again.
bool recorder_state::deliver() {
  do {
    take_until_much_is_to_be_written();
    if (!write()) return false;
  } while (pending_.taken < pending_.events.size());
  finish_batch();
  return true;
}

void recorder_state::take_until_much_is_to_be_written() {
  bool is_passed_over = false;
  {
    const fork_delay delay;
    for (; pending_.taken < pending_.events.size(); ++pending_.taken) {
      if (delivery_->pending_bytes() >= batch_bytes) break;
      if (!take(pending_.events[pending_.taken])) is_passed_over = true;
    }
  }
  if (is_passed_over)
    faults_.tell(kp_LOG_RecorderFault::event,
                 "the library makes no entry of an event in the ring, which was passed over");
}

// False where it is passed over.
bool recorder_state::take(const ring_event& event) {
  if (delivery_->add(event) == ring_delivery::outcome::taken) return true;
  lose(kp_LOG_Recorded::lost_value);
  return false;
}

bool recorder_state::write() {
  try {
    delivery_->write();
    return true;
  } catch (const file_error& error) {
    faults_.tell(kp_LOG_RecorderFault::output, error.what());
    return false;
  }
}

void recorder_state::finish_batch() {
  if (pending_.are_losses)
    for (const ring_event& event : pending_.events) note_told(*ring_, event);
  else
    delivered_.fetch_add(pending_.events.size(), std::memory_order_release);
  for (const auto& [lane, block] : pending_.done) give_back(*lane, *block);
  if (!pending_.done.empty()) pool_->wake();
  if (pending_.is_all && !pending_.are_losses) flushes_.finish(pending_.ticket);
  pending_.clear();
}

void recorder_state::batch::clear() {
  events.clear();
  done.clear();
  taken = 0;
  is_all = true;
  ticket = 0;
  are_losses = false;
}

// ---- blocks and lanes that nobody needs ----

bool recorder_state::are_blocks_scarce() const {
  return pool_->free() < pool_->size() / 2 || pool_->is_waited_for();
}

// A thread that records seldom keeps a block as long as there are enough for all.
void recorder_state::reclaim_idle_blocks() {
  const bool are_scarce = are_blocks_scarce();
  bool is_reclaimed = false;
  bool has_ended = false;
  for (const auto& lane : lanes_seen_) {
    const bool is_left = lane->is_left.load(std::memory_order_acquire);
    if ((are_scarce || is_left) && reclaim(*lane)) is_reclaimed = true;
    has_ended = has_ended || (is_left && lane->reading == nullptr);
  }
  if (is_reclaimed) pool_->wake();  // once: thousands may wait
  if (has_ended) forget_lanes_that_ended();
}

bool recorder_state::reclaim(recorder_lane& lane) {
  lane_block* const block = lane.reading;
  if (block == nullptr || lane.read != ring_load(block->head->used)) return false;
  lane.first.store(nullptr, std::memory_order_relaxed);
  lane_block* current = block;
  if (!lane.current.compare_exchange_strong(current, nullptr)) return false;
  lane.reading = nullptr;
  give_back(lane, *block);
  return true;
}

void recorder_state::forget_lanes_that_ended() {
  const std::lock_guard hold(lanes_mutex_);
  std::erase_if(lanes_, [this](const std::shared_ptr<recorder_lane>& lane) {
    const bool is_over = lane->is_left.load(std::memory_order_acquire) &&
                         lane->reading == nullptr &&
                         lane->first.load(std::memory_order_acquire) == nullptr;
    if (!is_over) return false;
    recorded_by_ended_ += lane->recorded.load(std::memory_order_relaxed);
    rejected_by_ended_ += lane->rejected.load(std::memory_order_relaxed);
    return true;
  });
  lanes_version_.fetch_add(1);
}

// ---- by the clock ----

void recorder_state::do_each_second() {
  next_second_ = steady_clock::now() + std::chrono::milliseconds(900);
  renew_zone();
  if (filter_.has_changed()) read_settings();
  if (pending_.is_empty()) tell_losses();
}

void recorder_state::renew_zone() {
  const fork_delay delay;
  tzset();
  zone_.renew(static_cast<uint64_t>(
      std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count()));
}

void recorder_state::read_settings() {
  try {
    const fork_delay delay;
    filter_.read();
    gate_.accepted.store(filter_.rule(), std::memory_order_relaxed);
  } catch (const file_error& error) {
    faults_.tell(kp_LOG_RecorderFault::settings, error.what());
  }
}

void recorder_state::tell_losses() {
  const std::vector<lost_bytes> losses = losses_to_tell(*ring_);
  for (const lost_bytes& lost : losses)
    faults_.tell(kp_LOG_RecorderFault::lost,
                 lost_message({lost.count, std::string(loss_reason(lost.kind))}));
  if (losses.empty()) return;
  pending_.events = put_losses(*ring_, *loss_block_->head, losses);
  pending_.are_losses = true;
}
