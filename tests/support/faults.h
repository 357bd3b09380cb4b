// C-library calls that fail on demand. Only in builds with fault hooks: a test that uses
// fault_scope stands between #ifdef KP_FAULTS and #endif.
#ifndef TESTS_SUPPORT_FAULTS_H
#define TESTS_SUPPORT_FAULTS_H

#ifdef KP_FAULTS

#include "base/kp_fault.h"

// While it lives, the n-th call of one kind (counted from here, from 1) fails with the given errno;
// with `sticky`, every later one too. A failing fread, fwrite or write still transfers
// `transferred` bytes. One scope per kind of call at a time.
class fault_scope {
 public:
  fault_scope(kp_fault_call call, unsigned nth, int error, bool sticky = false,
              size_t transferred = 0)
      : call_(call) {
    kp_fault_set(call, {nth, error, sticky, transferred});
  }
  ~fault_scope() { kp_fault_set(call_, {}); }
  fault_scope(const fault_scope&) = delete;
  fault_scope& operator=(const fault_scope&) = delete;

  // Calls of that kind since this scope began, failed ones included.
  unsigned calls_seen() const { return kp_fault_calls_seen(call_); }

 private:
  kp_fault_call call_;
};

#endif

#endif
