#include "recorder/lane.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <ctime>

lane_block recorder_lane::marks[2];

static constexpr uint32_t bits = 64;

block_pool::block_pool(const ring_file& ring)
    : blocks_(ring.blocks()), free_((ring.blocks() + bits - 1) / bits) {
  for (uint32_t number = 0; number < size(); ++number) {
    blocks_[number].head = &ring.block(number);
    blocks_[number].number = number;
    free_[number / bits].fetch_or(uint64_t{1} << (number % bits), std::memory_order_relaxed);
  }
  free_count_.store(size(), std::memory_order_relaxed);
}

lane_block* block_pool::take() noexcept {
  const auto words = static_cast<uint32_t>(free_.size());
  const uint32_t start = hint_.load(std::memory_order_relaxed);
  for (uint32_t step = 0; step < words; ++step) {
    const uint32_t word = (start + step) % words;
    uint64_t left = free_[word].load(std::memory_order_relaxed);
    while (left != 0) {
      const uint64_t lowest = left & -left;
      if (!free_[word].compare_exchange_weak(left, left & ~lowest, std::memory_order_acquire))
        continue;
      if (word != start) hint_.store(word, std::memory_order_relaxed);
      free_count_.fetch_sub(1, std::memory_order_relaxed);
      return &blocks_[word * bits + static_cast<uint32_t>(__builtin_ctzll(lowest))];
    }
  }
  return nullptr;
}

// What stands in it is gone for whoever reads the ring, before a lane can take it. Blocks that were
// written to before are taken first: their pages are at hand.
void block_pool::give_back(lane_block& block) noexcept {
  ring_store(block.head->used, uint32_t{0});
  block.next.store(nullptr, std::memory_order_relaxed);
  const uint32_t word = block.number / bits;
  free_[word].fetch_or(uint64_t{1} << (block.number % bits), std::memory_order_release);
  if (word < hint_.load(std::memory_order_relaxed)) hint_.store(word, std::memory_order_relaxed);
  free_count_.fetch_add(1, std::memory_order_relaxed);
  given_back_.fetch_add(1);
}

void block_pool::wake() noexcept {
  given_back_.fetch_add(1);
  if (waiting_.load() != 0)
    syscall(SYS_futex, &given_back_, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

void block_pool::wait(uint32_t seen, std::chrono::steady_clock::time_point end) noexcept {
  const auto left = end - std::chrono::steady_clock::now();
  if (left <= left.zero()) return;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
  const timespec patience{seconds.count(), std::chrono::nanoseconds(left - seconds).count()};
  waiting_.fetch_add(1);
  syscall(SYS_futex, &given_back_, FUTEX_WAIT_PRIVATE, seen, &patience, nullptr, 0);
  waiting_.fetch_sub(1);
}
