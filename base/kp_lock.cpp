#include "base/kp_lock.h"

#include <cstdlib>

// A lock operation fails only when the program is already broken (a destroyed lock, a lock that its
// own thread holds); going on unlocked would corrupt data later and elsewhere.
static void abort_unless_done(int status) noexcept {
  if (status != 0) std::abort();
}

kp_LOG_CRWLock::kp_LOG_CRWLock() noexcept
    : lock_ PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP {}
kp_LOG_CRWLock::~kp_LOG_CRWLock() {
  pthread_rwlock_destroy(&lock_);
}

void kp_LOG_CRWLock::lock_shared() noexcept {
  abort_unless_done(pthread_rwlock_rdlock(&lock_));
}
void kp_LOG_CRWLock::unlock_shared() noexcept {
  abort_unless_done(pthread_rwlock_unlock(&lock_));
}
void kp_LOG_CRWLock::lock() noexcept {
  abort_unless_done(pthread_rwlock_wrlock(&lock_));
}
void kp_LOG_CRWLock::unlock() noexcept {
  abort_unless_done(pthread_rwlock_unlock(&lock_));
}

kp_LOG_CReaderSentry::kp_LOG_CReaderSentry(kp_LOG_CRWLock& lock) noexcept : lock_(lock) {
  lock_.lock_shared();
}
kp_LOG_CReaderSentry::~kp_LOG_CReaderSentry() {
  lock_.unlock_shared();
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
