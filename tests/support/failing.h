// Calls that fail on demand while a scope lasts: failing(call, n, error) of the C library,
// failing_new(n) of operator new, failing_icu(n) of ICU's allocations. The n-th call fails, counted
// from 1 and from the scope's beginning on; 0: none. One scope of a kind at a time.
#ifndef TESTS_SUPPORT_FAILING_H
#define TESTS_SUPPORT_FAILING_H

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unicode/uclean.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <functional>
#include <limits>
#include <utility>

#include "base/kp_exception.h"
#include "base/kp_fault.h"

// How many calls fail: the n-th and all later ones.
constexpr unsigned from_then_on = std::numeric_limits<unsigned>::max();

// --- The C library ---

// Only in builds with fault hooks: a test that uses it stands between #ifdef KP_FAULTS and #endif.
#ifdef KP_FAULTS

// Calls of one kind, of all threads, fail with the given errno. A failing read or write still
// transfers `transferred` bytes.
class failing {
 public:
  failing(kp_fault_call call, unsigned n, int error, unsigned times = 1, size_t transferred = 0)
      : call_(call), n_(n) {
    kp_fault_set(call, {n, error, times, transferred});
  }
  ~failing() { kp_fault_set(call_, {}); }
  failing(const failing&) = delete;
  failing& operator=(const failing&) = delete;

  // Calls since this scope began, failed ones included.
  unsigned calls_seen() const { return kp_fault_calls_seen(call_); }
  bool met() const { return n_ != 0 && calls_seen() >= n_; }

 private:
  kp_fault_call call_;
  unsigned n_;
};

#endif

// --- operator new ---

// Allocations of this thread by operator new fail; ICU's own never come by there. The programs that
// use it link kplog_failing_new, which replaces operator new. Not for programs that run under
// ThreadSanitizer: its run-time brings an operator new that cannot be replaced.
class failing_new {
 public:
  explicit failing_new(unsigned n, unsigned times = 1);
  ~failing_new();
  failing_new(const failing_new&) = delete;
  failing_new& operator=(const failing_new&) = delete;

  // Whether the one that lives has made an allocation fail; of the last one, when none does.
  static bool met();
};

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

// --- ICU ---

// While one lives, `fails` is asked at each allocation that ICU makes in this thread; true makes
// the allocation fail. The memory functions stay installed afterwards.
class icu_allocations {
 public:
  explicit icu_allocations(std::function<bool()> fails) : fails_(std::move(fails)) {
    UErrorCode status = U_ZERO_ERROR;
    u_setMemoryFunctions(nullptr, allocate, reallocate, release, &status);
    EXPECT_TRUE(U_SUCCESS(status));
    now = this;
  }
  ~icu_allocations() { now = nullptr; }
  icu_allocations(const icu_allocations&) = delete;
  icu_allocations& operator=(const icu_allocations&) = delete;

 private:
  static bool fail() { return now != nullptr && now->fails_(); }
  static void* allocate(const void*, size_t size) { return fail() ? nullptr : std::malloc(size); }
  static void* reallocate(const void*, void* block, size_t size) {
    return fail() ? nullptr : std::realloc(block, size);
  }
  static void release(const void*, void* block) { std::free(block); }

  const std::function<bool()> fails_;
  inline static thread_local const icu_allocations* now = nullptr;
};

// Allocations of ICU in this thread fail. ICU itself does not survive that everywhere (opening a
// resource bundle without any memory ends in a deadlock); opening a converter does.
class failing_icu {
 public:
  explicit failing_icu(unsigned n, unsigned times = 1)
      : n_(n), allocations_([this, times] { return ++seen_ >= n_ && seen_ - n_ < times; }) {}

  bool met() const { return seen_ >= n_; }

 private:
  unsigned n_;
  unsigned seen_ = 0;
  icu_allocations allocations_;
};

enum class fault_outcome { none_left, sound, unsound, ended_by_icu };

// ICU does not check each of its allocations, so the attempt is made in a process of its own.
inline fault_outcome in_a_child(const std::function<fault_outcome()>& attempt) {
  const pid_t child = fork();
  if (child == 0) {
    constexpr rlimit no_core{0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    std::signal(SIGSEGV, SIG_DFL);
    std::signal(SIGABRT, SIG_DFL);
    alarm(10);  // ICU may wait for ever for a lock of its own
    _exit(static_cast<int>(attempt()));
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? static_cast<fault_outcome>(WEXITSTATUS(status))
                           : fault_outcome::ended_by_icu;
}

// AddressSanitizer makes each fork slow.
#ifdef KP_SANITIZED
constexpr unsigned fault_step = 7;
#else
constexpr unsigned fault_step = 1;
#endif

// --- One after another ---

// Runs `op` under failing_nth(1), failing_nth(2), ..., each a scope of this page, until a run meets
// no failure; that run must raise nothing. After every run that met one, `check(outcome)` gets what
// op raised (null: nothing) with calls working again. Returns how many runs met a failure.
template <class FailingNth, class Op, class Check>
unsigned for_each_failing(FailingNth failing_nth, Op op, Check check) {
  for (unsigned n = 1;; ++n) {
    std::exception_ptr outcome;
    bool met = false;
    {
      const auto fault = failing_nth(n);
      try {
        op();
      } catch (...) {
        outcome = std::current_exception();
      }
      met = fault.met();
    }
    if (!met) {
      EXPECT_EQ(outcome, nullptr) << "raised although no call failed";
      return n - 1;
    }
    check(outcome);
  }
}

template <class Op, class Check>
unsigned for_each_failing_new(Op op, Check check, unsigned times = 1) {
  return for_each_failing([times](unsigned n) { return failing_new(n, times); }, op, check);
}

template <class Op>
unsigned for_each_failing_new(Op op) {
  return for_each_failing_new(op, expect_memory_alloc);
}

#endif
