#include "base/kp_string.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "base/kp_exception.h"

// A length that leaves room for the NUL in 32 bits; anything longer counts as a failed allocation.
static unsigned checked_length(size_t length) {
  if (length >= std::numeric_limits<unsigned>::max()) KP_raise_memory_alloc();
  return static_cast<unsigned>(length);
}

static unsigned text_length(const char* text) {
  return text != nullptr ? checked_length(std::strlen(text)) : 0;
}

static char* new_block(unsigned capacity) {
  char* const block = new (std::nothrow) char[capacity];
  if (block == nullptr) KP_raise_memory_alloc();
  return block;
}

// memcpy and memcmp want real pointers even for no bytes at all.
static void copy_bytes(char* to, const char* from, unsigned length) {
  if (length != 0) std::memmove(to, from, length);
}

static int compare_bytes(const char* a, unsigned a_length, const char* b, unsigned b_length) {
  const unsigned common = std::min(a_length, b_length);
  const int order = common != 0 ? std::memcmp(a, b, common) : 0;
  if (order != 0 || a_length == b_length) return order;
  return a_length < b_length ? -1 : 1;
}

kp_String::kp_String(const char* text) : kp_String(text, text_length(text)) {}

kp_String::kp_String(unsigned count, char fill) : kp_String() {
  make_room(count);
  std::memset(bytes_, fill, count);
  set_length(count);
}

kp_String& kp_String::operator=(const kp_String& other) {
  if (this != &other) assign(other.bytes_, other.length_);
  return *this;
}

kp_String& kp_String::operator=(const char* text) {
  assign(text, text_length(text));
  return *this;
}

void kp_String::assign(const char* bytes, unsigned length) {
  if (bytes == nullptr) {
    release();
    return;
  }
  if (length < capacity_) {
    copy_bytes(bytes_, bytes, length);
    set_length(length);
    return;
  }
  kp_String fresh;
  fresh.make_room(length);
  copy_bytes(fresh.bytes_, bytes, length);
  fresh.set_length(length);
  *this = static_cast<kp_String&&>(fresh);
}

void kp_String::append(const char* text) {
  append(text, text_length(text));
}

void kp_String::append(const char* bytes, unsigned length) {
  if (bytes == nullptr) return;
  const size_t joined = size_t{length_} + length;
  if (joined < capacity_) {
    copy_bytes(bytes_ + length_, bytes, length);
    set_length(static_cast<unsigned>(joined));
    return;
  }
  // The old bytes stay until both parts are copied, since `bytes` may lie among them.
  kp_String grown;
  grown.make_room(std::max(checked_length(joined), growth()));
  copy_bytes(grown.bytes_, bytes_, length_);
  copy_bytes(grown.bytes_ + length_, bytes, length);
  grown.set_length(static_cast<unsigned>(joined));
  *this = static_cast<kp_String&&>(grown);
}

kp_String& kp_String::operator+=(const char* text) {
  append(text);
  return *this;
}

kp_String& kp_String::operator+=(const kp_String& other) {
  append(other.bytes_, other.length_);
  return *this;
}

char kp_String::operator[](unsigned index) const {
  if (index >= length_) throw KPX_index_out_of_bounds(nullptr, 0);
  return bytes_[index];
}

char& kp_String::operator[](unsigned index) {
  if (index >= length_) throw KPX_index_out_of_bounds(nullptr, 0);
  return bytes_[index];
}

int kp_String::compare(const kp_String& other) const noexcept {
  return compare_bytes(bytes_, length_, other.bytes_, other.length_);
}

int kp_String::compare(const char* text) const noexcept {
  if (text == nullptr) return length_ == 0 ? 0 : 1;
  const size_t length = std::strlen(text);
  const size_t limit = std::numeric_limits<unsigned>::max();
  return compare_bytes(bytes_, length_, text, static_cast<unsigned>(std::min(length, limit)));
}

unsigned kp_String::growth() const noexcept {
  const unsigned limit = std::numeric_limits<unsigned>::max() - 1;
  return capacity_ < limit / 2 ? 2 * capacity_ : length_;
}

void kp_String::make_room(unsigned length) {
  if (length < inline_room) {
    bytes_ = room_;
    capacity_ = inline_room;
    return;
  }
  const unsigned capacity = checked_length(length) + 1;
  bytes_ = new_block(capacity);
  capacity_ = capacity;
}
