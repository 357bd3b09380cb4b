// Texts that stay readable to the end of the process.
#ifndef KP_LOG_UTIL_KEPT_TEXT_H
#define KP_LOG_UTIL_KEPT_TEXT_H

#include <atomic>

// A copy of `text` that is never freed: equal texts share one, so that memory grows with the number
// of different texts only. For settings whose getters hand out their text: whoever got it may go on
// reading it whatever other threads set. Any thread. Raises KPX_memory_alloc.
const char* kp_log_kept_text(const char* text);

// A text, "" at first. Constant-initialised. Any thread.
class kp_log_text_setting {
 public:
  // Keeps a copy; without memory for it the text before it stays. Raises KPX_memory_alloc.
  void set(const char* text) { text_.store(kp_log_kept_text(text), std::memory_order_release); }
  // Readable to the end of the process.
  const char* get() const noexcept { return text_.load(std::memory_order_acquire); }

 private:
  std::atomic<const char*> text_{""};
};

#endif
