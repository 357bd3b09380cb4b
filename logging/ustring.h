// _kp_LOG_ustring: the byte string behind the multibyte attribute types.
#ifndef KP_LOG_USTRING_H
#define KP_LOG_USTRING_H

#include "base/kp_export.h"

// An owned byte string of a known length, NUL-terminated; or nothing at all: length 0, no array.
// A failed allocation raises KPX_memory_alloc (no message) and leaves the object as it was.
class KP_API _kp_LOG_ustring {
 public:
  _kp_LOG_ustring() noexcept = default;
  explicit _kp_LOG_ustring(const char* text);  // a copy up to the NUL; null: nothing
  _kp_LOG_ustring(const _kp_LOG_ustring& other);
  _kp_LOG_ustring(_kp_LOG_ustring&& other) noexcept;
  _kp_LOG_ustring& operator=(const _kp_LOG_ustring& other);
  _kp_LOG_ustring& operator=(_kp_LOG_ustring&& other) noexcept;
  ~_kp_LOG_ustring();

  void set_zero() noexcept;  // nothing: length 0, no array

  unsigned length() const noexcept { return length_; }       // without the NUL
  const char* get_array() const noexcept { return array_; }  // null when there is nothing
  const char* c_str() const noexcept { return array_ != nullptr ? array_ : ""; }

 private:
  unsigned length_ = 0;
  char* array_ = nullptr;  // length_ + 1 bytes, the last one 0
};

#endif
