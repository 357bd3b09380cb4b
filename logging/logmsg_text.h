// logmsg_text: the bytes of a message while it is written.
#ifndef KP_LOG_LOGMSG_TEXT_H
#define KP_LOG_LOGMSG_TEXT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

#include "base/kp_words.h"

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
  // The same for bytes behind which as many as `padding` others may be read.
  void append_padded(const char* bytes, size_t count) {
    char* at = room_for(count + padding);
    end_ = at + count;
    for (const char* const end = bytes + count; bytes < end; bytes += padding, at += padding)
      std::memcpy(at, bytes, padding);
  }
  // The same where all of them are ASCII and none is NUL; else false, and nothing is appended.
  bool append_ascii(const char* bytes, size_t count) {
    char* const at = room_for(count);
    if (!copy_ascii(bytes, count, at)) return false;
    end_ = at + count;
    return true;
  }
  void append(std::string_view text) { append(text.data(), text.size()); }
  void append(char byte) {
    *room_for(1) = byte;
    ++end_;
  }

  static constexpr size_t padding = 16;

 private:
  // Bytes of which each is ASCII and no NUL: behind a NUL some that are may be taken for others.
  template <class Word>
  static bool copy_word(const char* from, char* to) noexcept {
    constexpr Word ones = static_cast<Word>(~Word{0}) / 0xFF;
    const Word word = KP_word_at<Word>(from);
    std::memcpy(to, &word, sizeof word);
    return (((word - ones) | word) & (ones << 7)) == 0;
  }
  // In words, of which the last one overlaps the one before it.
  template <class Word>
  static bool copy_words(const char* from, size_t count, char* to) noexcept {
    for (size_t at = 0; at + sizeof(Word) < count; at += sizeof(Word))
      if (!copy_word<Word>(from + at, to + at)) return false;
    const size_t last = count - sizeof(Word);
    return copy_word<Word>(from + last, to + last);
  }
  static bool copy_ascii(const char* from, size_t count, char* to) noexcept {
    if (count >= sizeof(uint64_t)) return copy_words<uint64_t>(from, count, to);
    if (count >= sizeof(uint32_t)) return copy_words<uint32_t>(from, count, to);
    for (size_t at = 0; at < count; ++at) {
      to[at] = from[at];
      if (static_cast<signed char>(from[at]) <= 0) return false;
    }
    return true;
  }

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
