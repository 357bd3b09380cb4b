#include "logging/ustring.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "logging/raise.h"

// A copy of `length` bytes and the NUL behind them; null for null.
static char* copy_of_array(const char* array, size_t length) {
  if (array == nullptr) return nullptr;
  char* copy = length <= UINT32_MAX ? new (std::nothrow) char[length + 1] : nullptr;
  if (copy == nullptr) kp_log_raise_alloc();
  std::memcpy(copy, array, length + 1);
  return copy;
}

_kp_LOG_ustring::_kp_LOG_ustring(const char* text) {
  const size_t length = text != nullptr ? std::strlen(text) : 0;
  array_ = copy_of_array(text, length);
  length_ = static_cast<unsigned>(length);
}

_kp_LOG_ustring::_kp_LOG_ustring(const _kp_LOG_ustring& other)
    : length_(other.length_), array_(copy_of_array(other.array_, other.length_)) {}

_kp_LOG_ustring::_kp_LOG_ustring(_kp_LOG_ustring&& other) noexcept
    : length_(std::exchange(other.length_, 0)), array_(std::exchange(other.array_, nullptr)) {}

_kp_LOG_ustring& _kp_LOG_ustring::operator=(const _kp_LOG_ustring& other) {
  if (this != &other) *this = _kp_LOG_ustring(other);
  return *this;
}

_kp_LOG_ustring& _kp_LOG_ustring::operator=(_kp_LOG_ustring&& other) noexcept {
  if (this == &other) return *this;
  set_zero();
  std::swap(length_, other.length_);
  std::swap(array_, other.array_);
  return *this;
}

_kp_LOG_ustring::~_kp_LOG_ustring() {
  set_zero();
}

void _kp_LOG_ustring::set_zero() noexcept {
  length_ = 0;
  delete[] std::exchange(array_, nullptr);
}
