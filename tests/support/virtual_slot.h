// virtual_slot(&X::f): where calling programs find a virtual operation in the table of its class.
#ifndef TESTS_SUPPORT_VIRTUAL_SLOT_H
#define TESTS_SUPPORT_VIRTUAL_SLOT_H

#ifdef __x86_64__

#include <cstddef>
#include <cstdint>
#include <cstring>

// The slot, counted from 0. A virtual destructor takes two: it alone, and it with the freeing.
// A pointer to a virtual member function holds one more than the operation's distance in bytes from
// the start of the table, by the rules that compilers on this processor share.
template <class Operation>
size_t virtual_slot(Operation operation) {
  uintptr_t held = 0;
  static_assert(sizeof operation >= sizeof held);
  std::memcpy(&held, &operation, sizeof held);
  return (held - 1) / sizeof(void*);
}

#endif

#endif
