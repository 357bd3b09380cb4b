// Typed attribute values, and the text forms in which values are written.
#ifndef KP_LOG_ATTR_VALUE_H
#define KP_LOG_ATTR_VALUE_H

#include <unicode/uversion.h>

#include <cstdio>
#include <utility>

#include "base/kp_nocopy.h"
#include "base/kp_string.h"
#include "base/kp_time.h"
#include "kp_LOG_AttributeType.h"
#include "logging/ustring.h"

U_NAMESPACE_BEGIN
class UnicodeString;
U_NAMESPACE_END

// --- Text forms ---------------------------------------------------------------------------------

// Write the decimal digits of `value` and a NUL: 11 bytes at most for unsigned, 12 for signed.
KP_API void my_itoa(char* buffer, unsigned value);
KP_API void my_itoa(char* buffer, int value);

// Append the text of `value` to the terminated text in `buffer`, which must have room for it, and
// return `buffer`. Texts: integers in decimal; bool "1" or "0"; double as printf's "%f"; kp_String
// and _kp_LOG_ustring their text up to the first NUL; kp_Time as kp_Time::print_out gives its GMT
// form; UnicodeString nothing at all, on purpose. A null text appends nothing.
KP_API char* printf_out_attribute_value(char* buffer, const char* value);
KP_API char* printf_out_attribute_value(char* buffer, char* value);
KP_API char* printf_out_attribute_value(char* buffer, bool value);
KP_API char* printf_out_attribute_value(char* buffer, unsigned char value);
KP_API char* printf_out_attribute_value(char* buffer, char value);
KP_API char* printf_out_attribute_value(char* buffer, unsigned short value);
KP_API char* printf_out_attribute_value(char* buffer, short value);
KP_API char* printf_out_attribute_value(char* buffer, unsigned value);
KP_API char* printf_out_attribute_value(char* buffer, int value);
KP_API char* printf_out_attribute_value(char* buffer, double value);
KP_API char* printf_out_attribute_value(char* buffer, const kp_String& value);
KP_API char* printf_out_attribute_value(char* buffer, const kp_Time& value);
KP_API char* printf_out_attribute_value(char* buffer, const icu::UnicodeString& value);
KP_API char* printf_out_attribute_value(char* buffer, const _kp_LOG_ustring& value);

// Write the text of `value` behind the end of the file: seek the stream to its end, then one write
// on its descriptor, past the stream's buffer. Returns that write's result (which may be short), -1
// for a stream without a descriptor or a failed seek, and the text's length, writing nothing, for a
// null stream. A kp_String is written with its whole length. Two types differ, and are meant to:
// bool returns 0 for a null stream; double is written through the stream itself, buffered and
// without the seek, and returns what fprintf returns, -1 for a null stream. UnicodeString writes
// nothing: 0.
KP_API int printf_attribute_value(FILE* stream, const char* value);
KP_API int printf_attribute_value(FILE* stream, char* value);
KP_API int printf_attribute_value(FILE* stream, bool value);
KP_API int printf_attribute_value(FILE* stream, unsigned char value);
KP_API int printf_attribute_value(FILE* stream, char value);
KP_API int printf_attribute_value(FILE* stream, unsigned short value);
KP_API int printf_attribute_value(FILE* stream, short value);
KP_API int printf_attribute_value(FILE* stream, unsigned value);
KP_API int printf_attribute_value(FILE* stream, int value);
KP_API int printf_attribute_value(FILE* stream, double value);
KP_API int printf_attribute_value(FILE* stream, const kp_String& value);
KP_API int printf_attribute_value(FILE* stream, const kp_Time& value);
KP_API int printf_attribute_value(FILE* stream, const icu::UnicodeString& value);
KP_API int printf_attribute_value(FILE* stream, const _kp_LOG_ustring& value);

// --- Typed values -------------------------------------------------------------------------------

// The base of a typed value. Values are only ever made as _kp_LOG_datatype.
class KP_API _kp_LOG_type_base : kp_UTIL_no_inadvertant_copies {
 public:
  virtual ~_kp_LOG_type_base();
  // Write the value's text to a file, append it to a buffer: see the text forms above.
  virtual int print_type(FILE* stream) const = 0;
  virtual char* print_out(char* buffer) const = 0;
  // Copies the value of `other`, which must have the same type code; `other` is left unchanged.
  virtual void get_and_set(_kp_LOG_type_base* other) = 0;

  unsigned char get_type() const noexcept { return type_; }

 protected:
  explicit _kp_LOG_type_base(unsigned char type) noexcept : type_(type) {}

 private:
  unsigned char type_;  // a kp_AttributeType
};

// A typed value of C++ type T, whatever its code. Several codes share one T: readers that accept a
// family of codes reach the value through this class.
template <class T>
class KP_API _kp_LOG_value_holder : public _kp_LOG_type_base {
 public:
  int print_type(FILE* stream) const override { return printf_attribute_value(stream, value); }
  char* print_out(char* buffer) const override { return printf_out_attribute_value(buffer, value); }
  void get_and_set(_kp_LOG_type_base* other) override {
    value = static_cast<_kp_LOG_value_holder*>(other)->value;
  }

  T value;

 protected:
  explicit _kp_LOG_value_holder(unsigned char type) : _kp_LOG_type_base(type), value() {}
  _kp_LOG_value_holder(unsigned char type, const T& initial)
      : _kp_LOG_type_base(type), value(initial) {}
  template <class... Parts>
  _kp_LOG_value_holder(unsigned char type, std::in_place_t, Parts&&... parts)
      : _kp_LOG_type_base(type), value(std::forward<Parts>(parts)...) {}
};

// The value of an attribute of type `code`: one instantiation per kp_AttributeType, with T as
// kp_LOG_AttributeType.h names it.
template <class T, unsigned char code>
class KP_API _kp_LOG_datatype final : public _kp_LOG_value_holder<T> {
 public:
  _kp_LOG_datatype() : _kp_LOG_value_holder<T>(code) {}
  explicit _kp_LOG_datatype(const T& initial) : _kp_LOG_value_holder<T>(code, initial) {}
  explicit _kp_LOG_datatype(T&& initial)
      : _kp_LOG_value_holder<T>(code, std::in_place, std::move(initial)) {}
  // The value is made of the parts where it stays.
  template <class... Parts>
  explicit _kp_LOG_datatype(std::in_place_t tag, Parts&&... parts)
      : _kp_LOG_value_holder<T>(code, tag, std::forward<Parts>(parts)...) {}
};

// X(code, T) for every type, in the order of the codes.
#define KP_LOG_EACH_ATTRIBUTE_TYPE(X) \
  X(TypeBool, bool)                   \
  X(TypeUInt1, unsigned char)         \
  X(TypeSInt1, char)                  \
  X(TypeUInt2, unsigned short)        \
  X(TypeSInt2, short)                 \
  X(TypeUInt4, unsigned)              \
  X(TypeSInt4, int)                   \
  X(TypeFloat, double)                \
  X(TypeChar32, kp_String)            \
  X(TypeChar64, kp_String)            \
  X(TypeChar128, kp_String)           \
  X(TypeChar256, kp_String)           \
  X(TypeChar1K, kp_String)            \
  X(TypeChar2K, kp_String)            \
  X(TypeMBChar32, _kp_LOG_ustring)    \
  X(TypeMBChar64, _kp_LOG_ustring)    \
  X(TypeMBChar128, _kp_LOG_ustring)   \
  X(TypeMBChar256, _kp_LOG_ustring)   \
  X(TypeMBChar1K, _kp_LOG_ustring)    \
  X(TypeMBChar2K, _kp_LOG_ustring)    \
  X(TypeDate, kp_Time)                \
  X(TypeTime, kp_Time)                \
  X(TypeTimestamp, kp_Time)           \
  X(TypeGUID, kp_String)

#define KP_LOG_DECLARE_DATATYPE(code, T) extern template class _kp_LOG_datatype<T, code>;
KP_LOG_EACH_ATTRIBUTE_TYPE(KP_LOG_DECLARE_DATATYPE)
#undef KP_LOG_DECLARE_DATATYPE

#endif
