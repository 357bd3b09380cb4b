// How tests end a process in the middle of what it does.
#ifndef KP_FAULT_END_H
#define KP_FAULT_END_H

#include "base/kp_export.h"

#ifdef KP_FAULTS

// Ends the process, as a kill would, where it is to make its n-th call of any kind that
// base/kp_fault.h knows, from now on; 0: never.
KP_API void kp_fault_end_at(unsigned n) noexcept;

// The exit status of a process that has ended so.
constexpr int kp_fault_end_status = 137;

#endif

#endif
