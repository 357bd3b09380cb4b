// kp_per_thread<T>: one T for each thread, usable to the very end of the process.
#ifndef KP_LOG_UTIL_PER_THREAD_H
#define KP_LOG_UTIL_PER_THREAD_H

#include "logging/log_util_raise.h"

// The calling thread's own T, made by T() at the first call of the thread and deleted with the
// thread. A thread that asks again after that (destructors of other thread-local or static objects
// may log) gets a fresh one, which then stays. Raises KPX_memory_alloc when it cannot be made.
template <class T>
class kp_per_thread {
 public:
  kp_per_thread() = delete;

  static T& get() {
    if (object_ == nullptr) make();
    return *object_;
  }

 private:
  struct end_of_thread {
    ~end_of_thread() {
      delete object_;
      object_ = nullptr;
      ended_ = true;
    }
    void watch() const noexcept {}
  };

  static void make() {
    object_ = kp_log_no_bad_alloc([] { return new T(); });
    if (ended_) return;
    static thread_local end_of_thread end;
    end.watch();
  }

  inline static thread_local T* object_ = nullptr;
  inline static thread_local bool ended_ = false;
};

#endif
