// The locks of the product line, and the sentries that hold them for a scope.
#ifndef KP_LOCK_H
#define KP_LOCK_H

#include <pthread.h>

#include "base/kp_export.h"
#include "base/kp_nocopy.h"
#include "base/kp_thread_annotations.h"

// A reader/writer lock that prefers writers: a waiting writer holds new readers back, so that a
// stream of readers cannot starve it. Readers never nest, and nobody upgrades.
class KP_API KP_CAPABILITY("lock") kp_LOG_CRWLock : kp_UTIL_no_inadvertant_copies {
 public:
  kp_LOG_CRWLock() noexcept;
  ~kp_LOG_CRWLock();

  void lock_shared() noexcept KP_ACQUIRE_SHARED();
  void unlock_shared() noexcept KP_RELEASE_SHARED();
  void lock() noexcept KP_ACQUIRE();
  void unlock() noexcept KP_RELEASE();

 private:
  pthread_rwlock_t lock_;
};

// Holds the reader side for its scope.
class KP_API KP_SCOPED_CAPABILITY kp_LOG_CReaderSentry : kp_UTIL_no_inadvertant_copies {
 public:
  explicit kp_LOG_CReaderSentry(kp_LOG_CRWLock& lock) noexcept KP_ACQUIRE_SHARED(lock);
  ~kp_LOG_CReaderSentry() KP_RELEASE_GENERIC();

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
