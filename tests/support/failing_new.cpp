// The global operator new of the programs that link this, of which a chosen allocation of the
// running thread fails.
#include <cstdlib>
#include <new>

#include "tests/support/failing.h"

struct failing_new_state {
  unsigned n = 0;  // 0: no failure is wanted
  unsigned times = 0;
  unsigned seen = 0;
  bool met = false;
};

static thread_local failing_new_state failing_now;

failing_new::failing_new(unsigned n, unsigned times) {
  failing_now = {n, times, 0, false};
}

failing_new::~failing_new() {
  failing_now.n = 0;
}

bool failing_new::met() {
  return failing_now.met;
}

static bool allocation_fails() noexcept {
  failing_new_state& state = failing_now;
  if (state.n == 0 || ++state.seen < state.n || state.seen - state.n >= state.times) return false;
  state.met = true;
  return true;
}

static void* allocate_or_null(std::size_t size) noexcept {
  return allocation_fails() ? nullptr : std::malloc(size != 0 ? size : 1);
}

static void* allocate_or_throw(std::size_t size) {
  void* const block = allocate_or_null(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* operator new(std::size_t size) {
  return allocate_or_throw(size);
}
void* operator new[](std::size_t size) {
  return allocate_or_throw(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate_or_null(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate_or_null(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
