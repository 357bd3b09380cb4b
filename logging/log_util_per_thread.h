// kp_per_thread<T>: one T for each thread, usable to the very end of the process.
#ifndef KP_LOG_UTIL_PER_THREAD_H
#define KP_LOG_UTIL_PER_THREAD_H

#include <memory>

#include "logging/raise.h"

// What a thread does at its end; of static life in its thread. A thread's end is what comes behind
// the destructors of its thread_local objects, and whatever is watched for while it ends is done as
// well: what such a destructor logs with, or one of a pthread key, is given back like the rest. The
// thread that ends the process by returning from main or by exit() has no end.
class kp_log_thread_end {
 public:
  explicit constexpr kp_log_thread_end(void (*what)() noexcept) noexcept : what_(what) {}
  kp_log_thread_end(const kp_log_thread_end&) = delete;
  kp_log_thread_end& operator=(const kp_log_thread_end&) = delete;

  // Has it done once when the calling thread ends. False, changing nothing, when the system has no
  // room for it.
  bool watch() noexcept;
  bool is_watched() const noexcept { return is_watched_; }

 private:
  static void end(void* newest) noexcept;

  void (*what_)() noexcept;
  kp_log_thread_end* next_ = nullptr;  // watched for before this one
  bool is_watched_ = false;
};

// The calling thread's own T, made by T() at the first call of the thread and deleted at the
// thread's end; one that is asked for again meanwhile is made again, and deleted as well. Raises
// KPX_memory_alloc when it cannot be made.
template <class T>
class kp_per_thread {
 public:
  kp_per_thread() = delete;

  static T& get() {
    if (object_ == nullptr) make();
    return *object_;
  }

 private:
  static void destroy() noexcept {
    delete object_;
    object_ = nullptr;
  }

  static void make() {
    auto made = kp_log_no_bad_alloc([] { return std::make_unique<T>(); });
    if (!end_.watch()) kp_log_raise_alloc();
    object_ = made.release();
  }

  inline static constinit thread_local T* object_ = nullptr;
  inline static constinit thread_local kp_log_thread_end end_{&destroy};
};

#endif
