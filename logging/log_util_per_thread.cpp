#include "logging/log_util_per_thread.h"

#include <pthread.h>

// The key under which each thread keeps what it does at its end, and whether there is one. Values
// of keys are looked at behind the destructors of thread_local objects, and again as long as one is
// set meanwhile, as far as the system goes.
struct thread_end_key {
  explicit thread_end_key(void (*end)(void*)) noexcept
      : exists(pthread_key_create(&key, end) == 0) {}

  pthread_key_t key = {};
  bool exists;
};

bool kp_log_thread_end::watch() noexcept {
  static const thread_end_key ends(&end);
  if (!ends.exists) return false;
  auto* const newest = static_cast<kp_log_thread_end*>(pthread_getspecific(ends.key));
  if (pthread_setspecific(ends.key, this) != 0) return false;
  next_ = newest;
  is_watched_ = true;
  return true;
}

void kp_log_thread_end::end(void* newest) noexcept {
  for (auto* at = static_cast<kp_log_thread_end*>(newest); at != nullptr;) {
    kp_log_thread_end* const next = at->next_;
    at->next_ = nullptr;
    at->is_watched_ = false;
    at->what_();
    at = next;
  }
}
