// What a recorder is made of, in one process: its ring, the lanes of the threads that record, and
// the thread that brings events into the outputs.
#ifndef RECORDER_RECORDER_STATE_H
#define RECORDER_RECORDER_STATE_H

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "kp_LOG_Recorder.h"
#include "logging/own_settings.h"
#include "recorder/event_kinds.h"
#include "recorder/fault_teller.h"
#include "recorder/filter_rule.h"
#include "recorder/flush_tickets.h"
#include "recorder/lane.h"
#include "recorder/zone_memory.h"
#include "recording/records/event_set.h"
#include "recording/ring/ring_delivery.h"

class recorder_state;

// What calls find their recorder by. It is never freed: a call may come when the recorder is gone.
struct recorder_gate : _kp_LOG_recorder_gate {
  std::atomic<uint64_t> incarnation = 0;  // of the state; 0: it is closed
  std::atomic<uint64_t> process = 0;      // its mark

  std::mutex mutex;                       // of what follows
  std::shared_ptr<recorder_state> state;  // null: it is closed
  kp_LOG_RecorderOptions options;         // paths are absolute
  recorder_gate* next_kept = nullptr;
};

inline recorder_gate& whole(_kp_LOG_recorder_gate& gate) {
  return static_cast<recorder_gate&>(gate);
}

// Where rings belong: FOLDER/NAME of the first output, or NAME in the folder for rings.
std::string ring_stem(const kp_LOG_RecorderOptions& options);

// A time to wait that can be added to any other.
inline std::chrono::milliseconds bounded_wait(std::chrono::milliseconds time) {
  static constexpr std::chrono::milliseconds most = std::chrono::hours(24 * 365);
  return std::clamp(time, std::chrono::milliseconds(0), most);
}

class recorder_state : public std::enable_shared_from_this<recorder_state> {
 public:
  // Raises as kp_LOG_Recorder's constructor does. With `recovers` the rings that others left come
  // first.
  recorder_state(recorder_gate& gate, bool recovers);
  // No call gets into the ring any more, and all that is there is written. To be called once.
  void close() noexcept;
  // In a child of fork: the ring and the thread are the parent's.
  static void abandon(std::shared_ptr<recorder_state> of_parent) noexcept;

  uint64_t incarnation() const { return incarnation_; }

  // --- For the thread of a lane, that has taken `current` away

  const event_kinds& kinds() const noexcept { return *kinds_; }

  // Makes a block the last of the lane. False when there is no room, or not in time.
  bool add_block(recorder_lane& lane) noexcept;
  // Takes a block that nobody sees yet; null likewise.
  lane_block* take_block(recorder_lane& lane) noexcept;
  void give_back(recorder_lane& lane, lane_block& block) noexcept;
  void wake_those_who_wait() noexcept { pool_->wake(); }
  // Makes blocks that are linked by `next` the last of the lane.
  static void link(recorder_lane& lane, lane_block& first, lane_block& last) noexcept;

  // Fills in the time, later than that of the lane's last event, and its zone.
  void tell_time(recorder_lane& lane, uint64_t now, event_head& head) const noexcept {
    head.time = lane.last_time = std::max(now, lane.last_time + 1);
    if (head.time >= lane.zone_until) [[unlikely]]
      renew_zone(lane);
    head.zone = lane.zone;
  }
  void wake_writer() noexcept {
    if (is_asleep_.load(std::memory_order_relaxed) != 0) wake_writer_up();
  }
  void lose(kp_LOG_Recorded how) noexcept;

  // --- Under the gate's mutex

  std::shared_ptr<recorder_lane> make_lane();
  kp_LOG_RecorderStatistics statistics();

  // --- Any thread, while the state lives

  // False when what was recorded before is not in every output in time.
  bool flush(std::chrono::milliseconds patience);
  kp_log_own_settings& settings() { return settings_; }
  const event_set& events() const { return *events_; }

 private:
  // What is on its way into the outputs.
  struct batch {
    bool is_empty() const { return events.empty() && done.empty(); }
    void clear();  // keeps its memory

    std::vector<ring_event> events;
    std::vector<std::pair<recorder_lane*, lane_block*>> done;  // blocks that were read to their end
    size_t taken = 0;                                          // of the events, by the outputs
    bool is_all = true;                                        // nothing was left in the ring
    uint64_t ticket = 0;                                       // of the flush that it may end
    bool are_losses = false;
  };

  ring_info info_of_options() const;
  void open_definitions();
  void recover_others();
  void make_ring();
  void begin_thread();

  // The thread.
  void run() noexcept;
  void tell_that_events_wait(const std::exception& error) noexcept;
  void work();
  void rest();
  void sleep();
  void end();
  void pause_after_failure();
  void collect(batch& to);
  bool collect(recorder_lane& lane, batch& to);
  bool deliver();
  void take_until_much_is_to_be_written();
  bool take(const ring_event& event);
  bool write();
  void finish_batch();
  bool are_blocks_scarce() const;
  void reclaim_idle_blocks();
  bool reclaim(recorder_lane& lane);
  void forget_lanes_that_ended();
  void do_each_second();
  void renew_zone();
  void read_settings();
  void tell_losses();

  void renew_zone(recorder_lane& lane) const noexcept;
  void wake_writer_up() noexcept;
  // False where a thread does not come out of a call.
  bool close_lanes() noexcept;
  bool is_patience_over() const;
  bool is_to_give_up() const;
  // Nobody would do what it waited for.
  bool is_writer_thread() const noexcept {
    return writer_thread_.load(std::memory_order_relaxed) == std::this_thread::get_id();
  }

  recorder_gate& gate_;
  const uint64_t incarnation_;
  fault_teller faults_;
  kp_log_own_settings settings_;
  std::unique_ptr<event_set> events_;
  std::optional<event_kinds> kinds_;
  filter_rule filter_;
  zone_memory zone_;
  std::unique_ptr<ring_file> ring_;
  std::unique_ptr<block_pool> pool_;
  std::unique_ptr<ring_delivery> delivery_;
  lane_block* loss_block_ = nullptr;  // of the events that tell of losses, a batch at a time

  std::mutex lanes_mutex_;  // of the list
  std::vector<std::shared_ptr<recorder_lane>> lanes_;
  std::atomic<uint64_t> lanes_version_ = 0;
  uint32_t last_lane_ = 0;
  uint64_t recorded_by_ended_ = 0, rejected_by_ended_ = 0;

  std::chrono::steady_clock::time_point opening_since_ = std::chrono::steady_clock::now();
  bool is_open_ = false;
  std::atomic<bool> is_closing_ = false;
  std::atomic<bool> are_calls_over_ = false;  // nothing more comes into the ring
  std::chrono::steady_clock::time_point closing_since_;
  std::atomic<uint32_t> is_asleep_ = 0;
  std::atomic<uint64_t> delivered_ = 0;  // events

  flush_tickets flushes_;

  // The thread's own.
  std::vector<std::shared_ptr<recorder_lane>> lanes_seen_;  // a copy of the list
  uint64_t version_seen_ = UINT64_MAX;
  size_t first_lane_ = 0;  // of lanes_seen_, that the next batch begins with
  batch pending_;
  std::chrono::steady_clock::time_point next_second_;
  unsigned is_idle_ = 0;  // turns without events
  bool can_be_woken_ = false;
  bool are_losses_told_ = false;
  bool has_ended_ = false;
  bool is_empty_ = false;  // nothing is left in the ring

  std::atomic<std::thread::id> writer_thread_ = std::thread::id();
  std::thread writer_;
  std::shared_ptr<recorder_state> kept_;  // itself, in a child of fork that abandoned it
};

#endif
