// String attributes of an entry: size classes, cutting, and the escaping of line breaks.
#include <algorithm>
#include <cstdint>

#include "kp_LOG_LogConfig.h"
#include "logging/icu_text.h"
#include "logging/logentry_i_private.h"
#include "logging/settings.h"

// The work buffers on the stack. Cutting is offered one byte less, so that the NUL behind a text
// that fills what was offered has its place.
static constexpr int work_buffer_size = 8096;
static constexpr int cut_room = work_buffer_size - 1;

// The longest text of a string type, `first` being the type of its family's smallest class.
static int class_limit(unsigned char code, unsigned char first) {
  static constexpr short limits[] = {32, 64, 128, 256, 1024, 2048};
  return limits[code - first];
}

// Nothing adds a GUID.
static bool is_plain_string(unsigned char code) {
  return code >= TypeChar32 && code <= TypeChar2K;
}

static bool is_multibyte_string(unsigned char code) {
  return code >= TypeMBChar32 && code <= TypeMBChar2K;
}

// --- Adding -------------------------------------------------------------------------------------

[[noreturn, gnu::cold]] static void refuse_undeclared(const char* name, const char* operation,
                                                      unsigned entry_id) {
  kp_log_raise_undeclared(
      name, entry_id,
      kp_log_told("%s:%d _kp_LOG_log_entry_imp::%s, can not find attribute :%s\n",
                  kp_log_entry_source, __LINE__, operation, name));
}

[[gnu::always_inline]] inline const _kp_LOG_attribute_entry& _kp_LOG_log_entry_imp::_declared_text(
    const char* name, const char* operation) const {
  const _kp_LOG_attribute_entry* const declared = _declared(name);
  if (declared == nullptr) refuse_undeclared(name, operation, entry_id_);
  return *declared;
}

// Whether a byte of the word is below ' ', as line breaks are.
[[gnu::always_inline]] static inline bool holds_control(uint64_t word) {
  constexpr uint64_t every_byte = 0x0101010101010101;
  return ((word - every_byte * ' ') & ~word & (every_byte << 7)) != 0;
}

// Words at once, of which the last may be partly the one before it.
[[gnu::always_inline]] static inline bool holds_control(const char* text, size_t length) {
  if (length >= 8) {
    for (size_t at = 0; at < length; at += 8)
      if (holds_control(KP_word_at<uint64_t>(text + std::min(at, length - 8)))) return true;
    return false;
  }
  if (length >= 4)
    return holds_control(KP_word_at<uint32_t>(text) |
                         uint64_t{KP_word_at<uint32_t>(text + length - 4)} << 32);
  for (size_t at = 0; at < length; ++at)
    if (text[at] >= 0 && text[at] < ' ') return true;
  return false;
}

// Whether filtering into a work buffer would change the text.
static bool needs_filter(const char* text, size_t length, bool escape) {
  if (length >= work_buffer_size) return true;
  if (!escape) return std::memchr(text, '\\', length) != nullptr;
  return std::memchr(text, '\n', length) != nullptr || std::memchr(text, '\r', length) != nullptr;
}

// Most texts are short and plain, and are made where they stay; one that replaces a text may be
// where that comes from. The work buffers are in functions of their own, so that only the others
// touch that much stack.
template <class Text>
[[gnu::always_inline]] inline void _kp_LOG_log_entry_imp::_store_text(
    const _kp_LOG_attribute_entry& declared, const char* text, size_t length, bool escape) {
  if (length >= kp_String::inline_room || !escape || holds_control(text, length))
    return _store_any_text<Text>(declared, text, length, escape);
  held_attribute* const fresh = _inserted(declared);
  if (fresh == nullptr) return _store_any_text<Text>(declared, text, length, escape);
  modified_ = true;
  fresh->value = kp_log_make_value<Text>(fresh->room, declared.get_type());
  kp_log_value_in<Text>(*fresh->value).set_short(text, static_cast<unsigned>(length));
}

template <class Text>
[[gnu::noinline]] void _kp_LOG_log_entry_imp::_store_any_text(
    const _kp_LOG_attribute_entry& declared, const char* text, size_t length, bool escape) {
  if (needs_filter(text, length, escape))
    _store_filtered_text<Text>(declared, text, escape);
  else
    _store(declared, declared.get_type(), Text(text, kp_log_string_length(length)));
}

template <class Text>
[[gnu::noinline]] void _kp_LOG_log_entry_imp::_store_filtered_text(
    const _kp_LOG_attribute_entry& declared, const char* text, bool escape) {
  char filtered[work_buffer_size];
  filter_string(text, filtered, work_buffer_size, escape);
  _store(declared, declared.get_type(), Text(filtered));
}

[[gnu::noinline]] void _kp_LOG_log_entry_imp::_store_cut_string(
    const _kp_LOG_attribute_entry& declared, const char* text, bool escape) {
  char cut[work_buffer_size];
  cut[0] = '\0';
  truncate_string(declared.get_name(), text, class_limit(declared.get_type(), TypeChar32), cut,
                  cut_room);
  _store_text<kp_String>(declared, cut, std::strlen(cut), escape);
}

[[gnu::noinline]] void _kp_LOG_log_entry_imp::_store_cut_mbstring(
    const _kp_LOG_attribute_entry& declared, const char* text, bool escape) {
  char cut[work_buffer_size];
  cut[0] = '\0';
  truncate_mbstring(declared.get_name(), text, class_limit(declared.get_type(), TypeMBChar32), cut,
                    cut_room);
  _store_text<_kp_LOG_ustring>(declared, cut, std::strlen(cut), escape);
}

void _kp_LOG_log_entry_imp::add_attrib_str(const char* name, const char* value, bool escape) {
  if (kp_log_is_blank(name) || value == nullptr) {
    kp_log_raise_invalid_argument(
        kp_log_told("%s:%d _kp_LOG_log_entry_imp::add_attrib_str, name or value equal NULL\n",
                    kp_log_entry_source, __LINE__));
  }
  const _kp_LOG_attribute_entry& declared = _declared_text(name, "add_attrib_str");
  if (!is_plain_string(declared.get_type()))
    kp_log_raise<KPX_logging_attribute_type_mismatch>("Used the wrong add method.");
  _store_string(declared, value, escape);
}

void _kp_LOG_log_entry_imp::add_keyed_str(const kp_LOG_AttributeKey& key, const char* value) {
  const _kp_LOG_attribute_entry* const declared = _declared_at(key);
  if (declared == nullptr || value == nullptr || !is_plain_string(declared->get_type()))
    return add_attrib_str(key.name(), value, true);
  _store_string(*declared, value, true);
}

void _kp_LOG_log_entry_imp::_store_string(const _kp_LOG_attribute_entry& declared, const char* text,
                                          bool escape) {
  const size_t length = std::strlen(text);
  if (length > static_cast<size_t>(class_limit(declared.get_type(), TypeChar32)))
    _store_cut_string(declared, text, escape);
  else
    _store_text<kp_String>(declared, text, length, escape);
}

// Whether a multibyte text is longer than `limit`: in UTF-16 code units, or in bytes with ICU
// disabled.
[[gnu::noinline]] static bool mbstring_exceeds_in(const char* code_page, const char* value,
                                                  int limit) {
  int units = 0;
  switch (icu_text_count_units(value, code_page, limit, units)) {
    case icu_text_result::ok:
      if (icu_text_has_a_byte_for_each_unit(code_page))
        kp_log_settings::current().bytewise_code_page.store(code_page, std::memory_order_relaxed);
      return units > limit;
    case icu_text_result::unknown_code_page:
      kp_log_raise_invalid_argument();
    default:
      return true;
  }
}

[[gnu::always_inline]] static inline bool mbstring_exceeds(const char* value, size_t length,
                                                           int limit) {
  const bool exceeds_bytes = length > static_cast<size_t>(limit);
  const kp_log_settings& settings = kp_log_settings::current();
  if (!kp_load(*settings.is_icu_enabled)) return exceeds_bytes;
  const char* const code_page = settings.code_page.get();
  if (!exceeds_bytes && code_page == settings.bytewise_code_page.load(std::memory_order_relaxed))
    return false;
  return mbstring_exceeds_in(code_page, value, limit);
}

void _kp_LOG_log_entry_imp::add_attrib_mbstr(const char* name, const char* value, bool escape) {
  if (kp_log_is_blank(name) || value == nullptr) kp_log_raise_invalid_argument();
  const _kp_LOG_attribute_entry& declared = _declared_text(name, "add_attrib_mbstr");
  const unsigned char code = declared.get_type();
  if (!is_multibyte_string(code))
    kp_log_raise_under_id<KPX_logging_attribute_type_mismatch>("", "Used the wrong add method",
                                                               entry_id_);
  _store_mbstring(declared, value, escape);
}

void _kp_LOG_log_entry_imp::add_keyed_mbstr(const kp_LOG_AttributeKey& key, const char* value) {
  const _kp_LOG_attribute_entry* const declared = _declared_at(key);
  if (declared == nullptr || value == nullptr || !is_multibyte_string(declared->get_type()))
    return add_attrib_mbstr(key.name(), value, true);
  _store_mbstring(*declared, value, true);
}

[[gnu::always_inline]] inline void _kp_LOG_log_entry_imp::_store_mbstring(
    const _kp_LOG_attribute_entry& declared, const char* text, bool escape) {
  const size_t length = std::strlen(text);
  if (mbstring_exceeds(text, length, class_limit(declared.get_type(), TypeMBChar32)))
    _store_cut_mbstring(declared, text, escape);
  else
    _store_text<_kp_LOG_ustring>(declared, text, length, escape);
}

// --- Cutting ------------------------------------------------------------------------------------

// The checks of both cuts: true when the text is to be cut.
static bool may_cut(const char* name, const char* src, const char* dst, unsigned entry_id) {
  if (src == nullptr || dst == nullptr || name == nullptr)
    kp_log_raise<KPX_logging_illegal_argument>("arguement is null when trucate string!");
  const unsigned action = kp_load(*kp_log_settings::current().action_on_exceed);
  if (action == 0)
    kp_log_raise_under_id<KPX_logging_invalid_attribute_value>(name, " Attribute value is overflow",
                                                               entry_id);
  return action == 1;
}

static void cut_bytes(const char* src, int cut_len, char* dst, int buf_len) {
  if (cut_len < 0) kp_log_raise_invalid_argument();
  if (cut_len >= buf_len)
    kp_log_raise<KPX_logging_illegal_argument>("The buf length is smaller than cut length!");
  const size_t length = strnlen(src, static_cast<size_t>(cut_len));
  std::memmove(dst, src, length);
  dst[length] = '\0';
}

static void cut_units(const char* src, int cut_len, char* dst, int buf_len) {
  if (cut_len < 0 || buf_len <= 0) kp_log_raise_invalid_argument();
  int written = 0;
  if (icu_text_cut(src, kp_LOG_LogConfig::GetCodePage(), cut_len, dst, buf_len, written) !=
      icu_text_result::ok)
    kp_log_raise_invalid_argument();
  dst[written] = '\0';
}

void _kp_LOG_log_entry_imp::truncate_string(const char* name, const char* src, int cut_len,
                                            char* dst, int buf_len) const {
  if (may_cut(name, src, dst, entry_id_)) cut_bytes(src, cut_len, dst, buf_len);
}

void _kp_LOG_log_entry_imp::truncate_mbstring(const char* name, const char* src, int cut_len,
                                              char* dst, int buf_len) const {
  if (!may_cut(name, src, dst, entry_id_)) return;
  if (kp_LOG_LogConfig::IsICUEnabled())
    cut_units(src, cut_len, dst, buf_len);
  else
    cut_bytes(src, cut_len, dst, buf_len);
}

// --- Filtering ----------------------------------------------------------------------------------

// The source is read to its end or to position `last`. A pair is whole only where its first byte
// lies before last - 1; the output never passes `last`, however many pairs precede.
static char* escape_line_breaks(const char* src, char* dst, int last) {
  char* const end = dst + last;
  for (int i = 0; i < last && src[i] != '\0' && dst < end; ++i) {
    const bool line_break = src[i] == '\r' || src[i] == '\n';
    *dst++ = line_break ? '\\' : src[i];
    if (!line_break) continue;
    if (dst >= end) break;
    *dst++ = src[i] == '\r' ? 'r' : 'n';
  }
  return dst;
}

static char* unescape_line_breaks(const char* src, char* dst, int last) {
  char* const end = dst + last;
  while (*src != '\0' && dst < end) {
    if (src[0] == '\\' && (src[1] == 'n' || src[1] == 'r')) {
      *dst++ = src[1] == 'n' ? '\n' : '\r';
      src += 2;
    } else {
      *dst++ = *src++;
    }
  }
  return dst;
}

void _kp_LOG_log_entry_imp::filter_string(const char* src, char* dst, int dst_size, bool escape) {
  if (dst == nullptr || dst_size <= 0) return;
  if (src == nullptr) src = "";
  const int last = dst_size - 1;
  *(escape ? escape_line_breaks(src, dst, last) : unescape_line_breaks(src, dst, last)) = '\0';
}
