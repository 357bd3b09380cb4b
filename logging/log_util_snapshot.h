// A setting that is replaced as a whole while other threads use it.
#ifndef KP_LOG_UTIL_SNAPSHOT_H
#define KP_LOG_UTIL_SNAPSHOT_H

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "logging/log_util_per_thread.h"

// The one T that is current, or none. A thread that asks for it takes a share of it and keeps that,
// so that asking takes no lock as long as nothing was published since, and so that nobody frees
// what a thread uses: the last one that gives up its share destroys the T. A thread that never asks
// again keeps one T, the one that it asked for last of whichever snapshot, until it ends. What is
// current at the end of the process stays, so that whoever logs last still finds it. Nothing else
// is destroyed with a snapshot: its owner publishes none first, and nobody asks any more.
template <class T>
class kp_log_snapshot {
 public:
  constexpr kp_log_snapshot() noexcept = default;
  kp_log_snapshot(const kp_log_snapshot&) = delete;
  kp_log_snapshot& operator=(const kp_log_snapshot&) = delete;

  // A T and how many share it.
  struct holder {
    template <class... Args>
    explicit holder(Args&&... args) : value(std::forward<Args>(args)...) {}

    T value;
    std::atomic<unsigned> shares{1};
  };

  // A T that may be published. Raises KPX_memory_alloc, and what T's constructor raises.
  template <class... Args>
  static std::unique_ptr<holder> make(Args&&... args) {
    std::unique_ptr<holder> made(new (std::nothrow) holder(std::forward<Args>(args)...));
    if (made == nullptr) kp_log_raise_alloc();
    return made;
  }

  // Null when there is none. Valid in the calling thread until it asks again or publishes.
  T* get() const noexcept {
    holder* const now = current_.load(std::memory_order_acquire);
    if (now == nullptr) return nullptr;
    // Where this thread has a share of what stands at the address, nothing else does.
    return now == mine_ ? &now->value : renewed();
  }

  // Makes `next`, or none, the current one.
  void publish(std::unique_ptr<holder> next) noexcept {
    take(nullptr);
    holder* before = nullptr;
    {
      const std::lock_guard<std::mutex> hold(lock_);
      before = current_.exchange(next.release(), std::memory_order_acq_rel);
    }
    give_up(before);
  }

 private:
  // What is given up is destroyed outside the lock.
  [[gnu::noinline]] T* renewed() const noexcept {
    holder* now = nullptr;
    {
      const std::lock_guard<std::mutex> hold(lock_);
      now = current_.load(std::memory_order_relaxed);
      if (now != nullptr) now->shares.fetch_add(1, std::memory_order_relaxed);
    }
    take(now);
    // Where the system has no room to watch the thread's end, the share outlives the thread.
    if (!end_.is_watched()) static_cast<void>(end_.watch());
    return now != nullptr ? &now->value : nullptr;
  }

  // Makes the share `next`, or none, the calling thread's.
  static void take(holder* next) noexcept { give_up(std::exchange(mine_, next)); }

  static void give_up(holder* held) noexcept {
    if (held != nullptr && held->shares.fetch_sub(1, std::memory_order_acq_rel) == 1) delete held;
  }

  static void end_of_thread() noexcept { take(nullptr); }

  inline static constinit std::mutex lock_;  // a leaf: held for pointer copies only

  // The thread's share. It is looked at by every get(): this model spares the call that finds the
  // variable of a shared library, and takes 8 bytes of the room that the system keeps for that.
  [[gnu::tls_model("initial-exec")]] inline static constinit thread_local holder* mine_ = nullptr;
  inline static constinit thread_local kp_log_thread_end end_{&end_of_thread};

  std::atomic<holder*> current_{nullptr};
};

#endif
