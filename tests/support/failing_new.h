// Replaces the global operator new of the one program that includes this header (in exactly one of
// its files), so that a chosen allocation of the running thread fails. Allocations outside of an
// allocation_fault are untouched; ICU's own never come by here. Not for programs that run under
// ThreadSanitizer: its run-time brings an operator new that cannot be replaced.
#ifndef TESTS_SUPPORT_FAILING_NEW_H
#define TESTS_SUPPORT_FAILING_NEW_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <exception>
#include <new>

#include "base/kp_exception.h"

struct allocation_fault_state {
  bool armed;
  bool sticky;
  bool met;
  unsigned remaining;  // allocations until the failing one, itself included
};

static thread_local allocation_fault_state allocation_fault_now;

// While it lives, the n-th allocation of this thread (from 1) fails; with `sticky`, all later ones
// as well.
class allocation_fault {
 public:
  explicit allocation_fault(unsigned nth, bool sticky = false) {
    allocation_fault_now = {true, sticky, false, nth};
  }
  ~allocation_fault() { allocation_fault_now.armed = false; }
  allocation_fault(const allocation_fault&) = delete;
  allocation_fault& operator=(const allocation_fault&) = delete;

  bool met() const { return allocation_fault_now.met; }
};

static bool allocation_fails() noexcept {
  allocation_fault_state& state = allocation_fault_now;
  if (!state.armed) return false;
  if (state.met) return state.sticky;
  state.met = --state.remaining == 0;
  return state.met;
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

// Expects the one outcome that a failed allocation has at a public operation.
inline void expect_memory_alloc(const std::exception_ptr& outcome) {
  ASSERT_NE(outcome, nullptr) << "a failed allocation went unnoticed";
  try {
    std::rethrow_exception(outcome);
  } catch (const KPX_memory_alloc& error) {
    EXPECT_EQ(error.get_message(), nullptr);
  } catch (...) {
    ADD_FAILURE() << "an error other than KPX_memory_alloc was raised";
  }
}

// Runs `op` with its 1st, 2nd, ... allocation failing, until a run meets no failure; that run must
// raise nothing. After every run that met one, `check(outcome)` gets what op raised (null: nothing)
// with allocations working again. Returns how many runs met a failure.
template <class Op, class Check>
unsigned for_each_failing_allocation(Op op, Check check, bool sticky = false) {
  for (unsigned n = 1;; ++n) {
    std::exception_ptr outcome;
    bool met = false;
    {
      const allocation_fault fault(n, sticky);
      try {
        op();
      } catch (...) {
        outcome = std::current_exception();
      }
      met = fault.met();
    }
    if (!met) {
      EXPECT_EQ(outcome, nullptr) << "raised although no allocation failed";
      return n - 1;
    }
    check(outcome);
  }
}

template <class Op>
unsigned for_each_failing_allocation(Op op) {
  return for_each_failing_allocation(op, expect_memory_alloc);
}

#endif
