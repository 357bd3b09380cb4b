// How threads write into a ring without meeting: each has a lane, and its lane blocks of the ring.
#ifndef RECORDER_LANE_H
#define RECORDER_LANE_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "recorder/zone_memory.h"
#include "recording/ring/ring_file.h"
#include "recording/ring/ring_reader.h"

// A block, as the process that records sees it.
struct lane_block {
  block_head* head = nullptr;               // in the ring
  std::atomic<lane_block*> next = nullptr;  // of the lane, behind this one
  lane_block* spare = nullptr;              // the next of blocks that nobody sees yet
  uint32_t number = 0;

  unsigned char* frames() const { return reinterpret_cast<unsigned char*>(head + 1); }
};

// The blocks that no lane has. Any thread may take one, and the recorder's thread gives them back.
class block_pool {
 public:
  explicit block_pool(const ring_file& ring);

  // Null when none is left.
  lane_block* take() noexcept;
  void give_back(lane_block& block) noexcept;
  // Waits until a block is given back, or some were since `seen` was asked for.
  void wait(uint32_t seen, std::chrono::steady_clock::time_point end) noexcept;
  uint32_t given_back() const noexcept { return given_back_.load(std::memory_order_acquire); }
  // Lets all go that wait, also where nothing was given back.
  void wake() noexcept;

  uint32_t size() const noexcept { return static_cast<uint32_t>(blocks_.size()); }
  uint32_t free() const noexcept { return free_count_.load(std::memory_order_relaxed); }
  bool is_waited_for() const noexcept { return waiting_.load(std::memory_order_acquire) != 0; }

 private:
  std::vector<lane_block> blocks_;
  std::vector<std::atomic<uint64_t>> free_;  // a bit for each block
  std::atomic<uint32_t> hint_ = 0;           // word of free_ to look at first
  std::atomic<uint32_t> free_count_ = 0;
  std::atomic<uint32_t> given_back_ = 0;  // changes whenever blocks come back
  std::atomic<uint32_t> waiting_ = 0;     // threads
};

// One thread's events. The thread takes `current` away while it writes; the recorder's thread takes
// it when nothing is left to be read in it, and when the recorder closes.
class recorder_state;
struct recorder_lane {
  // What `current` is beside a block.
  static lane_block* busy() noexcept { return &marks[0]; }
  static lane_block* closed() noexcept { return &marks[1]; }
  static lane_block marks[2];

  recorder_lane(uint64_t its_recorder, uint32_t its_number, uint32_t its_thread)
      : recorder(its_recorder), number(its_number), thread(its_thread) {}

  const uint64_t recorder;                     // its incarnation (recorder_state)
  std::atomic<lane_block*> current = nullptr;  // null: none is had

  // The thread's own.
  lane_block* last = nullptr;             // that was taken
  unsigned char* at = nullptr;            // in it: where the next frame goes
  unsigned char* end = nullptr;           // of it
  uint64_t place = 0;                     // place_of it
  std::shared_ptr<recorder_state> state;  // of its recorder
  uint64_t last_time = 0;                 // of the last event
  uint64_t zone_until = 0;                // the time from which on the zone is to be asked for anew
  event_zone zone = {};
  uint32_t serial = 0;  // of `last`
  // Of an event in parts: its blocks, linked by `spare`, and the one that is written to.
  lane_block* parts = nullptr;
  lane_block* part = nullptr;

  std::atomic<uint64_t> recorded = 0, rejected = 0;  // written by the thread alone
  std::atomic<lane_block*> first = nullptr;          // that was not given back yet
  std::atomic<uint32_t> held = 0;                    // blocks
  std::atomic<bool> is_left = false;                 // the thread has ended
  const uint32_t number;                             // from 1
  const uint32_t thread;                             // the system's number

  // The reader's own.
  lane_reader reader;
  uint32_t read = 0;  // bytes of the first block
  lane_block* reading = nullptr;
};

#endif
