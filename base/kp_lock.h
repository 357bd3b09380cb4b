// The locks of the product line, and the sentries that hold them for a scope.
#ifndef KP_LOCK_H
#define KP_LOCK_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "base/kp_export.h"
#include "base/kp_nocopy.h"
#include "base/kp_thread_annotations.h"

// A reader/writer lock that prefers writers: a waiting writer holds new readers back, so that a
// stream of readers cannot starve it. Readers never nest, and nobody upgrades. A reader that meets
// no writer pays one atomic addition and one atomic subtraction.
class KP_API KP_CAPABILITY("lock") kp_LOG_CRWLock : kp_UTIL_no_inadvertant_copies {
 public:
  kp_LOG_CRWLock() noexcept;
  ~kp_LOG_CRWLock();

  void lock_shared() noexcept KP_ACQUIRE_SHARED() {
    if (users_.fetch_add(one_reader, std::memory_order_acquire) >= one_writer) wait_to_read();
  }
  void unlock_shared() noexcept KP_RELEASE_SHARED() {
    const uint64_t before = users_.fetch_sub(one_reader, std::memory_order_release);
    if (before >= one_writer) tell_writer(before);
  }
  void lock() noexcept KP_ACQUIRE();
  void unlock() noexcept KP_RELEASE();

 private:
  static constexpr uint64_t one_reader = 1;
  static constexpr uint64_t one_writer = uint64_t{1} << 32;

  void wait_to_read() noexcept KP_NO_THREAD_SAFETY_ANALYSIS;
  void tell_writer(uint64_t before) noexcept;

  // Readers that hold the lock, or look whether they may, in the lower half; writers that hold it
  // or wait for it in the upper one.
  std::atomic<uint64_t> users_{0};
  pthread_mutex_t writing_;  // of the writer whose turn it is
};

// Holds the reader side for its scope.
class KP_API KP_SCOPED_CAPABILITY kp_LOG_CReaderSentry : kp_UTIL_no_inadvertant_copies {
 public:
  explicit kp_LOG_CReaderSentry(kp_LOG_CRWLock& lock) noexcept KP_ACQUIRE_SHARED(lock)
      : lock_(lock) {
    lock_.lock_shared();
  }
  ~kp_LOG_CReaderSentry() KP_RELEASE_GENERIC() { lock_.unlock_shared(); }

 private:
  kp_LOG_CRWLock& lock_;
};

// Holds the writer side for its scope.
class KP_API KP_SCOPED_CAPABILITY kp_LOG_CWriterSentry : kp_UTIL_no_inadvertant_copies {
 public:
  explicit kp_LOG_CWriterSentry(kp_LOG_CRWLock& lock) noexcept KP_ACQUIRE(lock);
  ~kp_LOG_CWriterSentry() KP_RELEASE();

 private:
  kp_LOG_CRWLock& lock_;
};

// Holds the one process-wide lock for its scope. Recursive: a thread that holds it may take it
// again. Order of locks: this one, then a reader/writer lock, then any leaf lock.
class KP_API kp_THREAD_global_lock : kp_UTIL_no_inadvertant_copies {
 public:
  kp_THREAD_global_lock();
  ~kp_THREAD_global_lock();
};

#endif
