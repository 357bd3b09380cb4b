// logmsg_text: the bytes of a message while it is written.
#ifndef KP_LOG_LOGMSG_TEXT_H
#define KP_LOG_LOGMSG_TEXT_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

// Bytes that grow at their end; as long as there are few of them they take no allocation.
class logmsg_text {
 public:
  logmsg_text() noexcept = default;
  logmsg_text(const logmsg_text&) = delete;
  logmsg_text& operator=(const logmsg_text&) = delete;

  const char* data() const noexcept { return bytes_; }
  size_t size() const noexcept { return static_cast<size_t>(end_ - bytes_); }
  operator std::string_view() const noexcept { return {bytes_, size()}; }
  void clear() noexcept { end_ = bytes_; }

  // Where the next bytes go, with room for `most`; end_at() then says where they end.
  char* room_for(size_t most) {
    if (static_cast<size_t>(limit_ - end_) < most) grow(most);
    return end_;
  }
  void end_at(char* end) noexcept { end_ = end; }

  void append(const char* bytes, size_t count) {
    std::memcpy(room_for(count), bytes, count);
    end_ += count;
  }
  void append(std::string_view text) { append(text.data(), text.size()); }
  void append(char byte) {
    *room_for(1) = byte;
    ++end_;
  }

 private:
  // Not inlined: it stands in the way of every append.
  [[gnu::noinline]] void grow(size_t most) {
    const size_t held = size();
    const size_t capacity = 2 * std::max(held, sizeof first_) + most;
    std::unique_ptr<char[]> grown(new char[capacity]);
    std::memcpy(grown.get(), bytes_, held);
    further_ = std::move(grown);
    bytes_ = further_.get();
    end_ = bytes_ + held;
    limit_ = bytes_ + capacity;
  }

  char first_[1000];
  std::unique_ptr<char[]> further_;  // all bytes, once they no longer fit
  char* bytes_ = first_;
  char* end_ = first_;
  char* limit_ = first_ + sizeof first_;
};

#endif
