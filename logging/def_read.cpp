#include "logging/def_read.h"

#include "base/kp_clib.h"
#include "base/kp_endian.h"
#include "base/kp_hash.h"
#include "logging/def_read_items.h"
#include "logging/raise.h"

// ---- primitives ----

bool kp_read_data_chunk(FILE* stream, void* bytes, unsigned n) {
  if (stream == nullptr || (bytes == nullptr && n != 0)) return false;
  return KP_fread(bytes, 1, n, stream) == n;
}

bool kp_write_data_chunk(FILE* stream, void* bytes, unsigned n) {
  if (stream == nullptr || (bytes == nullptr && n != 0)) return false;
  return KP_fwrite(bytes, 1, n, stream) == n;
}

template <class T>
static bool read_big_endian(FILE* stream, T* value) {
  unsigned char bytes[sizeof(T)];
  if (value == nullptr || !kp_read_data_chunk(stream, bytes, sizeof bytes)) return false;
  *value = KP_get_big_endian<T>(bytes);
  return true;
}

template <class T>
static bool write_big_endian(FILE* stream, const T* value) {
  if (value == nullptr) return false;
  unsigned char bytes[sizeof(T)];
  KP_put_big_endian(bytes, *value);
  return kp_write_data_chunk(stream, bytes, sizeof bytes);
}

bool kp_be_read_int1(FILE* stream, unsigned char* value) {
  return read_big_endian(stream, value);
}
bool kp_be_read_int2(FILE* stream, unsigned short* value) {
  return read_big_endian(stream, value);
}
bool kp_be_read_int4(FILE* stream, unsigned* value) {
  return read_big_endian(stream, value);
}
bool kp_be_write_int1(FILE* stream, unsigned char* value) {
  return write_big_endian(stream, value);
}
bool kp_be_write_int2(FILE* stream, unsigned short* value) {
  return write_big_endian(stream, value);
}
bool kp_be_write_int4(FILE* stream, unsigned* value) {
  return write_big_endian(stream, value);
}

// ---- records ----

// A stream as a source for the readers of def_read_items.h.
class _kp_LOG_ldf_stream_source {
 public:
  explicit _kp_LOG_ldf_stream_source(FILE* stream) noexcept : stream_(stream) {}

  bool read(void* bytes, size_t n) noexcept {
    return stream_ != nullptr && KP_fread(bytes, 1, n, stream_) == n;
  }
  // Asks the file only about lengths that are worth the question.
  bool may_hold(size_t n) noexcept {
    if (n <= kp_ldf_text_step) return true;
    ask_file();
    return !knows_its_end_ || n <= left_;
  }
  bool knows_its_end() const noexcept { return knows_its_end_; }

 private:
  void ask_file() noexcept {
    struct stat status = {};
    knows_its_end_ = KP_fstat(KP_fileno(stream_), &status) == 0 && S_ISREG(status.st_mode);
    const off_t position = knows_its_end_ ? KP_ftell(stream_) : -1;
    knows_its_end_ = position >= 0;
    left_ = position < status.st_size ? static_cast<size_t>(status.st_size - position) : 0;
  }

  FILE* stream_;
  bool knows_its_end_ = false;
  size_t left_ = 0;  // bytes behind the position, when the end is known
};

// What read(source) says of `stream`; false as well when memory is short.
template <class Read>
static bool read_from(FILE* stream, Read read) noexcept {
  try {
    _kp_LOG_ldf_stream_source source(stream);
    return read(source);
  } catch (const KPX_memory_alloc&) {
    return false;
  }
}

bool _kp_LOG_read_file_header(FILE* stream, _kp_LOG_ldf_header_struct& header) {
  return read_from(stream, [&](auto& in) { return kp_ldf_read_header(in, header); });
}

bool _kp_LOG_read_string(FILE* stream, kp_String& text) {
  return read_from(stream, [&](auto& in) { return kp_ldf_read_string(in, text); });
}

bool _kp_LOG_read_property_flag(FILE* stream, kp_String& name, unsigned& flag) {
  return read_from(stream, [&](auto& in) { return kp_ldf_read_property_flag(in, name, flag); });
}

bool _kp_LOG_read_attribute(FILE* stream, kp_String& name, kp_AttributeType& type,
                            kp_String& redirection) {
  return read_from(stream,
                   [&](auto& in) { return kp_ldf_read_attribute(in, name, type, redirection); });
}

bool _kp_LOG_read_entry_info(FILE* stream, unsigned& id, unsigned& word2, unsigned& property_flags,
                             kp_String& default_msg_id, kp_String& default_msg_text,
                             kp_String& selector_attribute) {
  return read_from(stream, [&](auto& in) {
    return kp_ldf_read_entry_info(in, id, word2, property_flags, default_msg_id, default_msg_text,
                                  selector_attribute);
  });
}

bool _kp_LOG_read_selector_msg(FILE* stream, unsigned& index, unsigned& value, kp_String& msg_id,
                               kp_String& msg_text) {
  return read_from(stream, [&](auto& in) {
    return kp_ldf_read_selector_msg(in, index, value, msg_id, msg_text);
  });
}

bool _kp_LOG_read_entry_id_offset_mapping(FILE* stream, unsigned& id, unsigned& offset) {
  return read_from(stream, [&](auto& in) { return kp_ldf_read_mapping(in, id, offset); });
}

// ---- hash ----

unsigned my_hashcode(const char* text) {
  return text != nullptr ? KP_text_hash(text, KP_strlen(text)) : 0;
}
