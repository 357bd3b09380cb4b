#include "logging/def_read_view.h"

#include <algorithm>
#include <cstring>

#include "base/kp_clib.h"

_kp_LOG_ldf_view::_kp_LOG_ldf_view(FILE* stream) noexcept : descriptor_(KP_fileno(stream)) {
  struct stat status = {};
  if (KP_fstat(descriptor_, &status) != 0) return;
  size_ = static_cast<uint64_t>(status.st_size);
  changed_at_ = status.st_ctim;
}

// Where the window does not hold all of it.
bool _kp_LOG_ldf_view::read_beyond(void* bytes, size_t n) noexcept {
  if (!may_hold(n)) return false;
  auto* target = static_cast<unsigned char*>(bytes);
  const size_t held = take_from_window(target, n);
  if (held == n) return true;
  target += held;
  n -= held;
  if (n >= window_size) return read_at_position(target, n) == n;
  fill_window();
  return take_from_window(target, n) == n;
}

// Copies what the window holds of the next n bytes, and returns how many that were.
size_t _kp_LOG_ldf_view::take_from_window(unsigned char* bytes, size_t n) noexcept {
  if (position_ < window_start_ || position_ - window_start_ >= window_length_) return 0;
  const auto skipped = static_cast<size_t>(position_ - window_start_);
  const size_t taken = std::min(n, window_length_ - skipped);
  std::memcpy(bytes, window_ + skipped, taken);
  position_ += taken;
  return taken;
}

// With as much of the file as can be read: one that was shortened since has less than it had.
void _kp_LOG_ldf_view::fill_window() noexcept {
  const auto wanted = static_cast<size_t>(std::min(size_ - position_, uint64_t{window_size}));
  window_start_ = position_;
  window_length_ = read_at_position(window_, wanted);
  position_ = window_start_;
}

// Moves the position behind what it could read of n bytes, and returns how many those were.
size_t _kp_LOG_ldf_view::read_at_position(void* bytes, size_t n) noexcept {
  auto* const target = static_cast<unsigned char*>(bytes);
  size_t count = 0;
  while (count != n) {
    const ssize_t done =
        KP_pread(descriptor_, target + count, n - count, static_cast<off_t>(position_));
    if (done <= 0) break;
    count += static_cast<size_t>(done);
    position_ += static_cast<size_t>(done);
  }
  return count;
}
