// Whether this is still the process in which something was made, without asking the system.
#ifndef RECORDER_PROCESS_MARK_H
#define RECORDER_PROCESS_MARK_H

#include <atomic>
#include <cstdint>

// A page that the system empties for every child of fork, however the fork came about.
struct process_page {
  std::atomic<uint64_t> mark;  // 0 in a child, until it is asked for there
};

extern process_page* recorder_process;

// Makes the page. False where the system has none.
bool has_process_page() noexcept;

// The mark of this process. Different from that of its parent and of every child.
uint64_t process_mark() noexcept;

// For the road of an event: whether the mark is that of this process.
inline bool is_this_process(uint64_t mark) noexcept {
  return recorder_process->mark.load(std::memory_order_relaxed) == mark;
}

#endif
