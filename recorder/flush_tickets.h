// Who waits until all that was recorded before is written, and how far the recorder's thread is.
#ifndef RECORDER_FLUSH_TICKETS_H
#define RECORDER_FLUSH_TICKETS_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

// For any number of threads that wait, and one that writes.
class flush_tickets {
 public:
  uint64_t draw() {
    const std::lock_guard hold(mutex_);
    return ++last_;
  }
  // False when the ticket is not finished in time.
  bool wait(uint64_t ticket, std::chrono::milliseconds patience) {
    std::unique_lock hold(mutex_);
    return changed_.wait_for(hold, patience, [&] { return finished_ >= ticket; });
  }

  // The last that was drawn: what was recorded before that is seen by whoever reads now.
  uint64_t last() {
    const std::lock_guard hold(mutex_);
    return last_;
  }
  // And with it all before.
  void finish(uint64_t ticket) {
    const std::lock_guard hold(mutex_);
    if (finished_ >= ticket) return;
    finished_ = ticket;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  uint64_t last_ = 0, finished_ = 0;
};

#endif
