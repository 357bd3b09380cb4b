// A number that tells one thing from every other one of the process, past and present.
#ifndef KP_LOG_UTIL_IDENTITY_H
#define KP_LOG_UTIL_IDENTITY_H

#include <atomic>
#include <cstdint>

// The number is drawn when it is first asked for and never again by anybody: what was worked out
// for a thing may be kept under it, and is not found for another thing that comes to stand at its
// address. Numbers follow each other in the order in which they are drawn, beginning with 1.
class kp_log_identity {
 public:
  constexpr kp_log_identity() noexcept = default;
  kp_log_identity(const kp_log_identity&) = delete;
  kp_log_identity& operator=(const kp_log_identity&) = delete;

  // Any thread.
  uint64_t number() const noexcept {
    const uint64_t drawn = number_.load(std::memory_order_relaxed);
    return drawn != 0 ? drawn : draw();
  }
  // What it stands for is another thing from now on. Nobody asks for the number meanwhile.
  void renew() noexcept { number_.store(0, std::memory_order_relaxed); }

 private:
  [[gnu::noinline]] uint64_t draw() const noexcept {
    uint64_t none = 0;
    const uint64_t mine = last_.fetch_add(1, std::memory_order_relaxed) + 1;
    return number_.compare_exchange_strong(none, mine, std::memory_order_relaxed) ? mine : none;
  }

  inline static std::atomic<uint64_t> last_{0};
  mutable std::atomic<uint64_t> number_{0};  // 0: not drawn yet
};

#endif
