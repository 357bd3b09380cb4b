// A regular file as bytes at absolute offsets.
#ifndef KP_LOG_DEF_READ_VIEW_H
#define KP_LOG_DEF_READ_VIEW_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/kp_nocopy.h"

// Reads a stream's file through a bounded window of its own, without touching the stream's position
// or buffer: several views of one file, also in a child process that shares the descriptor, do not
// disturb each other. Measures the file once, when it is made, and takes it to end there.
// A source for the readers of def_read_items.h. Does not own the stream. Raises nothing.
class _kp_LOG_ldf_view : kp_UTIL_no_inadvertant_copies {
 public:
  explicit _kp_LOG_ldf_view(FILE* stream) noexcept;

  // Any offset will do; reading beyond the file's end fails.
  void seek(uint64_t offset) noexcept { position_ = offset; }
  bool read(void* bytes, size_t n) noexcept {
    const uint64_t skipped = position_ - window_start_;
    if (skipped > window_length_ || n > window_length_ - skipped) return read_beyond(bytes, n);
    std::memcpy(bytes, window_ + skipped, n);
    position_ += n;
    return true;
  }
  bool may_hold(size_t n) const noexcept { return position_ <= size_ && n <= size_ - position_; }
  static constexpr bool knows_its_end() noexcept { return true; }
  uint64_t position() const noexcept { return position_; }
  uint64_t size() const noexcept { return size_; }  // of the file; 0 when it cannot be told
  // When the file was changed last, as the system tells it; 0 when it cannot be told.
  const timespec& changed_at() const noexcept { return changed_at_; }

 private:
  static constexpr size_t window_size = 4096;

  bool read_beyond(void* bytes, size_t n) noexcept;
  size_t take_from_window(unsigned char* bytes, size_t n) noexcept;
  void fill_window() noexcept;
  size_t read_at_position(void* bytes, size_t n) noexcept;

  int descriptor_;
  uint64_t size_ = 0;
  timespec changed_at_ = {};
  uint64_t position_ = 0;
  uint64_t window_start_ = 0;  // offset of window_[0]
  size_t window_length_ = 0;   // bytes of the window that hold the file's
  unsigned char window_[window_size];
};

#endif
