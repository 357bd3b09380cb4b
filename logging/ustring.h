// _kp_LOG_ustring: the byte string behind the multibyte attribute types.
#ifndef KP_LOG_USTRING_H
#define KP_LOG_USTRING_H

#include "base/kp_export.h"
#include "base/kp_string.h"

// An owned byte string of a known length, NUL-terminated; or nothing at all: length 0, no array.
// Short texts live inside the object. A failed allocation raises KPX_memory_alloc (no message) and
// leaves the object as it was. What was moved from is nothing.
class KP_API _kp_LOG_ustring {
 public:
  _kp_LOG_ustring() noexcept = default;
  explicit _kp_LOG_ustring(const char* text) : text_(text) {}  // up to the NUL; null: nothing
  _kp_LOG_ustring(const char* bytes, unsigned length) : text_(bytes, length) {}

  // Of nothing: a copy of fewer than kp_String::inline_room bytes.
  [[gnu::always_inline]] void set_short(const char* bytes, unsigned length) noexcept {
    text_.set_short(bytes, length);
  }
  void set_zero() noexcept { text_ = kp_String(); }  // nothing: length 0, no array

  unsigned length() const noexcept { return text_.length(); }  // without the NUL
  // Null when there is nothing. Valid until the string changes, moves or dies.
  const char* get_array() const noexcept { return text_.has_buffer() ? text_.c_str() : nullptr; }
  const char* c_str() const noexcept { return text_.c_str(); }

 private:
  kp_String text_;  // without a buffer: nothing
};

#endif
