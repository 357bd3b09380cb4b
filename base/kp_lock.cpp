#include "base/kp_lock.h"

#include <cstdlib>

// A lock operation fails only when the program is already broken (a destroyed lock, a lock that its
// own thread holds); going on unlocked would corrupt data later and elsewhere.
static void abort_unless_done(int status) noexcept {
  if (status != 0) std::abort();
}

kp_LOG_CRWLock::kp_LOG_CRWLock() noexcept : writing_ PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP {}
kp_LOG_CRWLock::~kp_LOG_CRWLock() {
  pthread_mutex_destroy(&writing_);
}

// A reader that found a writer steps back, waits until there is none, and tries again.
void kp_LOG_CRWLock::wait_to_read() noexcept {
  do {
    unlock_shared();
    uint64_t now = users_.load(std::memory_order_relaxed);
    for (; now >= one_writer; now = users_.load(std::memory_order_relaxed)) users_.wait(now);
  } while (users_.fetch_add(one_reader, std::memory_order_acquire) >= one_writer);
}

// The last reader that leaves lets the writer in that waits. `before` is what it left.
void kp_LOG_CRWLock::tell_writer(uint64_t before) noexcept {
  if (before % one_writer == one_reader) users_.notify_all();
}

void kp_LOG_CRWLock::lock() noexcept {
  users_.fetch_add(one_writer, std::memory_order_relaxed);
  abort_unless_done(pthread_mutex_lock(&writing_));
  uint64_t now = users_.load(std::memory_order_acquire);
  for (; now % one_writer != 0; now = users_.load(std::memory_order_acquire)) users_.wait(now);
}

void kp_LOG_CRWLock::unlock() noexcept {
  const uint64_t before = users_.fetch_sub(one_writer, std::memory_order_release);
  // Readers wait until no writer is left.
  if (before < 2 * one_writer) users_.notify_all();
  abort_unless_done(pthread_mutex_unlock(&writing_));
}

kp_LOG_CWriterSentry::kp_LOG_CWriterSentry(kp_LOG_CRWLock& lock) noexcept : lock_(lock) {
  lock_.lock();
}
kp_LOG_CWriterSentry::~kp_LOG_CWriterSentry() {
  lock_.unlock();
}

// Initialised before any code runs and never destroyed, so that static objects of the calling
// program may configure and log while they are made and destroyed.
static pthread_mutex_t global_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

kp_THREAD_global_lock::kp_THREAD_global_lock() {
  abort_unless_done(pthread_mutex_lock(&global_mutex));
}
kp_THREAD_global_lock::~kp_THREAD_global_lock() {
  abort_unless_done(pthread_mutex_unlock(&global_mutex));
}
