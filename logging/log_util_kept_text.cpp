#include "logging/log_util_kept_text.h"

#include <array>
#include <cstring>
#include <functional>
#include <mutex>
#include <new>
#include <string_view>

#include "logging/raise.h"

// A kept text; its characters and their NUL follow it.
struct kept_text {
  const char* characters() const noexcept { return reinterpret_cast<const char*>(this + 1); }

  kept_text* next;
};

static constinit std::mutex kept_texts_lock;  // a leaf
static constinit std::array<kept_text*, 1024> kept_texts = {};

const char* kp_log_kept_text(const char* text) {
  const std::string_view wanted(text);
  const std::lock_guard<std::mutex> hold(kept_texts_lock);
  kept_text*& newest = kept_texts[std::hash<std::string_view>()(wanted) % kept_texts.size()];
  for (const kept_text* kept = newest; kept != nullptr; kept = kept->next)
    if (wanted == kept->characters()) return kept->characters();
  void* const room = ::operator new(sizeof(kept_text) + wanted.size() + 1, std::nothrow);
  if (room == nullptr) kp_log_raise_alloc();
  newest = new (room) kept_text{newest};
  std::memcpy(static_cast<kept_text*>(room) + 1, text, wanted.size() + 1);
  return newest->characters();
}
