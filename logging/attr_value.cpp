#include "logging/attr_value.h"

#include <unicode/unistr.h>

#include <charconv>
#include <cstring>

#include "base/kp_clib.h"

_kp_LOG_type_base::~_kp_LOG_type_base() = default;

#define KP_LOG_DEFINE_DATATYPE(code, T) template class _kp_LOG_datatype<T, code>;
KP_LOG_EACH_ATTRIBUTE_TYPE(KP_LOG_DEFINE_DATATYPE)
#undef KP_LOG_DEFINE_DATATYPE

void my_itoa(char* buffer, unsigned value) {
  *std::to_chars(buffer, buffer + 10, value).ptr = '\0';
}

void my_itoa(char* buffer, int value) {
  const bool negative = value < 0;
  if (negative) *buffer++ = '-';
  my_itoa(buffer, negative ? 0U - static_cast<unsigned>(value) : static_cast<unsigned>(value));
}

// The text of one value: the value's own bytes, or, for numbers and times, bytes made in here.
class attr_value_text {
 public:
  explicit attr_value_text(const char* value) : bytes_(value != nullptr ? value : "") {
    length_ = std::strlen(bytes_);
  }
  explicit attr_value_text(const kp_String& value)
      : bytes_(value.c_str()), length_(value.length()) {}
  explicit attr_value_text(const _kp_LOG_ustring& value) : attr_value_text(value.c_str()) {}
  explicit attr_value_text(bool value) : bytes_(value ? "1" : "0"), length_(1) {}
  explicit attr_value_text(unsigned value) : attr_value_text() {
    my_itoa(room_, value);
    length_ = std::strlen(room_);
  }
  explicit attr_value_text(int value) : attr_value_text() {
    my_itoa(room_, value);
    length_ = std::strlen(room_);
  }
  explicit attr_value_text(unsigned char value) : attr_value_text(unsigned{value}) {}
  explicit attr_value_text(unsigned short value) : attr_value_text(unsigned{value}) {}
  explicit attr_value_text(char value)
      : attr_value_text(static_cast<int>(static_cast<signed char>(value))) {}
  explicit attr_value_text(short value) : attr_value_text(static_cast<int>(value)) {}
  explicit attr_value_text(double value) : attr_value_text() {
    const int length = snprintf(room_, sizeof room_, "%f", value);
    length_ = length > 0 ? static_cast<size_t>(length) : 0;
  }
  explicit attr_value_text(kp_Time value) : attr_value_text() {
    value.local_to_GMT();
    value.print_out(room_, 128);
    length_ = std::strlen(room_);
  }
  attr_value_text(const attr_value_text&) = delete;
  attr_value_text& operator=(const attr_value_text&) = delete;

  const char* bytes() const { return bytes_; }
  size_t length() const { return length_; }

 private:
  attr_value_text() : bytes_(room_) {}

  const char* bytes_;
  size_t length_ = 0;
  char room_[352];  // the longest double takes 317 bytes
};

static char* append_text(char* buffer, const attr_value_text& text) {
  const size_t length = strnlen(text.bytes(), text.length());
  char* end = buffer + std::strlen(buffer);
  std::memcpy(end, text.bytes(), length);
  end[length] = '\0';
  return buffer;
}

static int write_text(FILE* stream, const attr_value_text& text) {
  if (stream == nullptr) return static_cast<int>(text.length());
  const int file = KP_fileno(stream);
  if (file == -1 || KP_fseek(stream, 0, SEEK_END) != 0) return -1;
  return static_cast<int>(KP_write(file, text.bytes(), text.length()));
}

char* printf_out_attribute_value(char* buffer, const char* value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, char* value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, bool value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, unsigned char value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, char value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, unsigned short value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, short value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, unsigned value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, int value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, double value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, const kp_String& value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, const kp_Time& value) {
  return append_text(buffer, attr_value_text(value));
}

char* printf_out_attribute_value(char* buffer, const icu::UnicodeString&) {
  return buffer;
}

char* printf_out_attribute_value(char* buffer, const _kp_LOG_ustring& value) {
  return append_text(buffer, attr_value_text(value));
}

int printf_attribute_value(FILE* stream, const char* value) {
  return write_text(stream, attr_value_text(value));
}

int printf_attribute_value(FILE* stream, char* value) {
  return write_text(stream, attr_value_text(value));
}

int printf_attribute_value(FILE* stream, bool value) {
  return stream != nullptr ? write_text(stream, attr_value_text(value)) : 0;
}

int printf_attribute_value(FILE* stream, unsigned char value) {
  return write_text(stream, attr_value_text(value));
}

int printf_attribute_value(FILE* stream, char value) {
  return write_text(stream, attr_value_text(value));
}

int printf_attribute_value(FILE* stream, unsigned short value) {
  return write_text(stream, attr_value_text(value));
}

int printf_attribute_value(FILE* stream, short value) {
  return write_text(stream, attr_value_text(value));
}

int printf_attribute_value(FILE* stream, unsigned value) {
  return write_text(stream, attr_value_text(value));
}

int printf_attribute_value(FILE* stream, int value) {
  return write_text(stream, attr_value_text(value));
}

int printf_attribute_value(FILE* stream, double value) {
  return stream != nullptr ? fprintf(stream, "%f", value) : -1;
}

int printf_attribute_value(FILE* stream, const kp_String& value) {
  return write_text(stream, attr_value_text(value));
}

int printf_attribute_value(FILE* stream, const kp_Time& value) {
  return write_text(stream, attr_value_text(value));
}

int printf_attribute_value(FILE*, const icu::UnicodeString&) {
  return 0;
}

int printf_attribute_value(FILE* stream, const _kp_LOG_ustring& value) {
  return write_text(stream, attr_value_text(value));
}
