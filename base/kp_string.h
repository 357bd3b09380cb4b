// kp_String: an owned byte string that may also hold nothing at all.
#ifndef KP_STRING_H
#define KP_STRING_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/kp_export.h"
#include "base/kp_words.h"

// Whether `length` bytes at `a` and at `b` are the same. Short ones are compared without a call: as
// words, of which the last may overlap the one before it.
inline bool KP_are_same_bytes(const char* a, const char* b, size_t length) noexcept {
  const auto differ = [a, b](size_t at, auto word) {
    return KP_word_at<decltype(word)>(a + at) != KP_word_at<decltype(word)>(b + at);
  };
  if (length > 32) return std::memcmp(a, b, length) == 0;
  if (length >= 8) {
    for (size_t at = 0; at + 8 < length; at += 8)
      if (differ(at, uint64_t{})) return false;
    return !differ(length - 8, uint64_t{});
  }
  if (length >= 4) return !differ(0, uint32_t{}) && !differ(length - 4, uint32_t{});
  if (length >= 2) return !differ(0, uint16_t{}) && !differ(length - 2, uint16_t{});
  return length == 0 || *a == *b;
}

// Copies fewer than 32 bytes that do not overlap, without a call: as two words, which may overlap
// each other.
[[gnu::always_inline]] inline void KP_copy_short(char* to, const char* from,
                                                 size_t length) noexcept {
  const auto copy_ends = [=](auto word) __attribute__((always_inline)) {
    decltype(word) first, last;
    std::memcpy(&first, from, sizeof word);
    std::memcpy(&last, from + length - sizeof word, sizeof word);
    std::memcpy(to, &first, sizeof word);
    std::memcpy(to + length - sizeof word, &last, sizeof word);
  };
  struct sixteen_bytes {
    uint64_t halves[2];
  };
  if (length >= 16) return copy_ends(sixteen_bytes{});
  if (length >= 8) return copy_ends(uint64_t{});
  if (length >= 4) return copy_ends(uint32_t{});
  if (length >= 2) return copy_ends(uint16_t{});
  if (length == 1) *to = *from;
}

// A byte string with its length, always NUL-terminated behind the last byte; bytes may be 0.
// A string without a buffer (default-constructed, or made from null) differs from an empty one only
// in has_buffer(). Short texts live inside the object; longer ones in one heap block.
// One object is used by one thread at a time; distinct objects are independent.
// A failed allocation raises KPX_memory_alloc (no message) and leaves the string as it was.
class KP_API kp_String {
 public:
  static constexpr unsigned inline_room = 32;  // bytes inside the object, the NUL included

  kp_String() noexcept : bytes_(nullptr), length_(0), capacity_(0) {}  // no buffer
  kp_String(const char* text);                                         // a copy; null: no buffer
  // A copy of `length` bytes; null: no buffer.
  kp_String(const char* bytes, unsigned length) : kp_String() {
    if (bytes == nullptr || length >= inline_room) {
      assign(bytes, length);
      return;
    }
    set_short(bytes, length);
  }
  kp_String(unsigned count, char fill);  // `count` times the byte `fill`
  kp_String(const kp_String& other) : kp_String() {
    if (other.is_short()) {
      set_short(other);
    } else {
      assign(other.bytes_, other.length_);
    }
  }
  kp_String(kp_String&& other) noexcept : kp_String() {
    take(other);
  }  // leaves `other` without a buffer
  ~kp_String() {
    if (!is_short()) delete[] bytes_;
  }

  kp_String& operator=(const kp_String& other);
  kp_String& operator=(kp_String&& other) noexcept {
    if (this != &other) {
      release();
      take(other);
    }
    return *this;
  }
  kp_String& operator=(const char* text);  // null: no buffer afterwards

  // Each takes bytes that may lie inside this very string.
  void assign(const char* bytes, unsigned length);  // null: no buffer afterwards
  void append(const char* text);                    // null appends nothing
  void append(const char* bytes, unsigned length);
  kp_String& operator+=(const char* text);
  kp_String& operator+=(const kp_String& other);

  bool has_buffer() const noexcept { return bytes_ != nullptr; }
  // Never null: "" without a buffer. Valid until the string changes, moves or dies.
  const char* c_str() const noexcept { return bytes_ != nullptr ? bytes_ : ""; }
  unsigned length() const noexcept { return length_; }
  // Whether the text lives inside the object, so that a copy needs no memory.
  bool is_short() const noexcept { return bytes_ == room_; }
  // Of a string without a buffer: a copy of fewer than inline_room bytes.
  [[gnu::always_inline]] void set_short(const char* bytes, unsigned length) noexcept {
    bytes_ = room_;
    capacity_ = inline_room;
    KP_copy_short(room_, bytes, length);
    set_length(length);
  }
  // Of a string without a buffer: a copy of one that is short.
  void set_short(const kp_String& other) noexcept {
    length_ = other.length_;
    capacity_ = inline_room;
    bytes_ = room_;
    std::memcpy(room_, other.room_, inline_room);  // a fixed size is faster
  }

  // The byte at `index`; KPX_index_out_of_bounds (null message) when `index` >= length().
  char operator[](unsigned index) const;
  char& operator[](unsigned index);

  // Order by unsigned bytes, then by length: negative, 0 or positive. A string without a buffer
  // compares like an empty one.
  int compare(const kp_String& other) const noexcept;
  int compare(const char* text) const noexcept;  // null compares like ""

 private:
  unsigned growth() const noexcept;            // the length to make room for when appending
  void make_room(unsigned length);             // of a string without a buffer; sets no length
  void set_length(unsigned length) noexcept {  // with the NUL behind it
    length_ = length;
    bytes_[length] = '\0';
  }
  void release() noexcept {
    if (!is_short()) delete[] bytes_;
    bytes_ = nullptr;
    length_ = 0;
    capacity_ = 0;
  }
  void take(kp_String& other) noexcept {  // of a string without a buffer
    if (other.is_short()) {
      set_short(other);
    } else {
      length_ = other.length_;
      capacity_ = other.capacity_;
      bytes_ = other.bytes_;
    }
    other.bytes_ = nullptr;
    other.length_ = 0;
    other.capacity_ = 0;
  }

  char* bytes_;        // null (no buffer), room_, or an owned block of capacity_ bytes
  unsigned length_;    // without the NUL
  unsigned capacity_;  // bytes at bytes_, the NUL included
  char room_[inline_room];
};

inline bool operator==(const kp_String& a, const kp_String& b) noexcept {
  return a.compare(b) == 0;
}
inline bool operator!=(const kp_String& a, const kp_String& b) noexcept {
  return a.compare(b) != 0;
}
inline bool operator<(const kp_String& a, const kp_String& b) noexcept {
  return a.compare(b) < 0;
}

#endif
