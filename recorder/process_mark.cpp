#include "recorder/process_mark.h"

#include <sys/mman.h>
#include <unistd.h>

#include <new>

// Where the system has no such page (before Linux 4.14) children are not told from their parent:
// better none is made than events of two processes in one lane.
static process_page* made_page() noexcept {
  const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* const memory =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED || madvise(memory, size, MADV_WIPEONFORK) != 0) return nullptr;
  auto* const page = new (memory) process_page;
  page->mark.store(1, std::memory_order_relaxed);
  return page;
}

constinit process_page* recorder_process = nullptr;

bool has_process_page() noexcept {
  static const bool is_there = (recorder_process = made_page()) != nullptr;
  return is_there;
}

// Of the last process on the way to this one that asked.
static std::atomic<uint64_t> last_mark = 1;

uint64_t process_mark() noexcept {
  uint64_t mark = recorder_process->mark.load(std::memory_order_acquire);
  if (mark != 0) return mark;
  const uint64_t next = last_mark.load(std::memory_order_relaxed) + 1;
  if (!recorder_process->mark.compare_exchange_strong(mark, next, std::memory_order_acq_rel))
    return mark;
  last_mark.store(next, std::memory_order_relaxed);
  return next;
}
