#include "base/kp_fault.h"

#include "base/kp_fault_end.h"

#ifdef KP_FAULTS

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <mutex>

struct kp_fault_state {
  kp_fault_plan plan;
  unsigned seen = 0;
};

static std::mutex fault_mutex;
static std::array<kp_fault_state, static_cast<size_t>(kp_fault_call::count)> fault_states;
static unsigned calls_to_end = 0;
static std::atomic<FILE*> marked_stream{nullptr};

static kp_fault_state& state_of(kp_fault_call call) noexcept {
  return fault_states[static_cast<size_t>(call)];
}

void kp_fault_set(kp_fault_call call, const kp_fault_plan& plan) noexcept {
  const std::lock_guard<std::mutex> hold(fault_mutex);
  state_of(call) = {plan, 0};
}

void kp_fault_end_at(unsigned n) noexcept {
  const std::lock_guard<std::mutex> hold(fault_mutex);
  calls_to_end = n;
}

unsigned kp_fault_calls_seen(kp_fault_call call) noexcept {
  const std::lock_guard<std::mutex> hold(fault_mutex);
  return state_of(call).seen;
}

bool kp_fault_strikes(kp_fault_call call) noexcept {
  const std::lock_guard<std::mutex> hold(fault_mutex);
  if (calls_to_end != 0 && --calls_to_end == 0) _exit(kp_fault_end_status);
  kp_fault_state& state = state_of(call);
  ++state.seen;
  const kp_fault_plan& plan = state.plan;
  const bool struck = plan.nth != 0 && state.seen >= plan.nth && state.seen - plan.nth < plan.times;
  if (struck) errno = plan.error;
  return struck;
}

size_t kp_fault_transfer(kp_fault_call call, size_t wanted) noexcept {
  const std::lock_guard<std::mutex> hold(fault_mutex);
  return std::min(wanted, state_of(call).plan.transferred);
}

void kp_fault_mark(FILE* stream) noexcept {
  marked_stream = stream;
}

void kp_fault_unmark(FILE* stream) noexcept {
  marked_stream.compare_exchange_strong(stream, nullptr);
}

bool kp_fault_is_marked(FILE* stream) noexcept {
  return marked_stream == stream;
}

#endif
