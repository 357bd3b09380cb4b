// Fault hooks: how tests make the n-th C-library call of a kind fail.
#ifndef KP_FAULT_H
#define KP_FAULT_H

#include <cstddef>
#include <cstdio>

#include "base/kp_export.h"

// The kinds of calls that the wrappers of kp_clib.h announce before they make them.
enum class kp_fault_call {
  open,
  fdopen,
  fopen,
  fclose,
  fread,
  fwrite,
  fseek,
  ftell,
  fflush,
  getc,
  openat,
  close,
  read,
  write,
  pread,
  pwrite,
  ftruncate,
  fsync,
  fdatasync,
  flock,
  fchmod,
  chmod,
  stat,
  lstat,
  fstat,
  fstatat,
  readlink,
  access,
  rename,
  unlink,
  unlinkat,
  mkostemp,
  mkdtemp,
  mkdir,
  fdopendir,
  readdir,
  bind,
  listen,
  inotify_init1,
  getcwd,
  localtime_r,
  mktime,
  strftime,
  count  // not a kind: how many there are
};

#ifdef KP_FAULTS

// What is to happen to the calls of one kind from the moment it is planned.
struct kp_fault_plan {
  unsigned nth = 0;        // the call that fails, counted from 1; 0: none
  int error = 0;           // errno of that call
  unsigned times = 1;      // how many calls fail, from that one on
  size_t transferred = 0;  // bytes that a failing read or write still transfers
};

// Plans the faults of one kind, in place of what was planned for it before. Process-wide and safe
// to call from any thread.
KP_API void kp_fault_set(kp_fault_call call, const kp_fault_plan& plan) noexcept;

// The calls of that kind since its plan was set.
KP_API unsigned kp_fault_calls_seen(kp_fault_call call) noexcept;

// Asked by the wrappers: counts the call and says whether it is to fail; then errno is set.
KP_API bool kp_fault_strikes(kp_fault_call call) noexcept;

// Bytes, at most `wanted`, that the call which has just been struck still transfers.
KP_API size_t kp_fault_transfer(kp_fault_call call, size_t wanted) noexcept;

// The error mark that a struck fread, fwrite or getc leaves on its stream, as ferror would show it:
// at most one stream bears it. Clearing with another stream's address does nothing.
KP_API void kp_fault_mark(FILE* stream) noexcept;
KP_API void kp_fault_unmark(FILE* stream) noexcept;
KP_API bool kp_fault_is_marked(FILE* stream) noexcept;

#else

// Without hooks nothing ever strikes, and the wrappers are the plain calls.
constexpr bool kp_fault_strikes(kp_fault_call) noexcept {
  return false;
}
constexpr size_t kp_fault_transfer(kp_fault_call, size_t wanted) noexcept {
  return wanted;
}
inline void kp_fault_mark(FILE*) noexcept {}
inline void kp_fault_unmark(FILE*) noexcept {}
inline bool kp_fault_is_marked(FILE*) noexcept {
  return false;
}

#endif

#endif
