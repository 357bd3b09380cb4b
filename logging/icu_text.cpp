#include "logging/icu_text.h"

#include <unicode/ucnv.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <memory>
#include <utility>

#include "logging/log_util_per_thread.h"
#include "logging/log_util_raise.h"

struct icu_text_closer {
  void operator()(UConverter* converter) const noexcept { ucnv_close(converter); }
};
using icu_text_handle = std::unique_ptr<UConverter, icu_text_closer>;

// Open converters of one thread, by the name they were asked for.
class icu_text_converters {
 public:
  // The converter, valid until the next call; null, and a failure in `status`, when ICU opens none.
  UConverter* find(const char* name, UErrorCode& status) {
    for (slot& kept : slots_) {
      if (kept.converter && kept.name == name) return kept.converter.get();
    }
    return open(name, status);
  }

 private:
  struct slot {
    std::string name;
    icu_text_handle converter;
  };

  UConverter* open(const char* name, UErrorCode& status) {
    std::string copy(name);
    icu_text_handle converter(ucnv_open(name, &status));
    if (U_FAILURE(status) || !converter) return nullptr;
    slot& victim = slots_[next_];
    next_ = (next_ + 1) % slots_.size();
    victim.name = std::move(copy);
    victim.converter = std::move(converter);
    return victim.converter.get();
  }

  std::array<slot, 8> slots_;
  size_t next_ = 0;  // the slot that was filled longest ago
};

static const char* icu_text_resolved(const char* code_page) {
  if (code_page != nullptr && *code_page != '\0') return code_page;
  const char* name = ucnv_getDefaultName();
  return name != nullptr ? name : "";
}

static UConverter* icu_text_converter_for(const char* code_page) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = kp_log_no_bad_alloc([=, &status] {
    return kp_per_thread<icu_text_converters>::get().find(icu_text_resolved(code_page), status);
  });
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  return converter;
}

static icu_text_result icu_text_outcome(UErrorCode status) {
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  return U_FAILURE(status) ? icu_text_result::not_converted : icu_text_result::ok;
}

// Whether the bytes stand for themselves in Unicode, one unit each, read by this converter.
static bool icu_text_is_plain_ascii(const UConverter* converter, const char* bytes, size_t length) {
  const UConverterType type = ucnv_getType(converter);
  if (type != UCNV_UTF8 && type != UCNV_LATIN_1 && type != UCNV_US_ASCII) return false;
  return std::all_of(bytes, bytes + length,
                     [](char c) { return static_cast<signed char>(c) >= 0; });
}

static void icu_text_widen(const char* bytes, int length, icu::UnicodeString& text) {
  char16_t* units = text.getBuffer(length);
  if (units == nullptr) kp_log_raise_alloc();
  std::transform(bytes, bytes + length, units, [](char c) { return static_cast<char16_t>(c); });
  text.releaseBuffer(length);
}

// Decodes into the room given; returns the units needed when they are more than that, else 0.
static int icu_text_decode_into(UConverter* converter, const char* bytes, int length, int room,
                                icu::UnicodeString& text, UErrorCode& status) {
  char16_t* units = text.getBuffer(room);
  if (units == nullptr) kp_log_raise_alloc();
  status = U_ZERO_ERROR;
  const int count = ucnv_toUChars(converter, units, text.getCapacity(), bytes, length, &status);
  text.releaseBuffer(U_SUCCESS(status) ? count : 0);
  return status == U_BUFFER_OVERFLOW_ERROR ? count : 0;
}

static icu_text_result icu_text_decode_with(UConverter* converter, const char* bytes,
                                            icu::UnicodeString& text) {
  const size_t size = std::strlen(bytes);
  if (size > INT32_MAX / 4) return icu_text_result::not_converted;
  const int length = static_cast<int>(size);
  if (icu_text_is_plain_ascii(converter, bytes, size)) {
    icu_text_widen(bytes, length, text);
    return icu_text_result::ok;
  }
  UErrorCode status = U_ZERO_ERROR;
  const int needed = icu_text_decode_into(converter, bytes, length, length + 1, text, status);
  if (needed > 0) icu_text_decode_into(converter, bytes, length, needed, text, status);
  return icu_text_outcome(status);
}

icu_text_result icu_text_decode(const char* bytes, const char* code_page,
                                icu::UnicodeString& text) {
  text.remove();
  UConverter* converter = icu_text_converter_for(code_page);
  if (converter == nullptr) return icu_text_result::unknown_code_page;
  return icu_text_decode_with(converter, bytes, text);
}

icu_text_result icu_text_encode(const icu::UnicodeString& text, const char* code_page, char* dst,
                                int size, int& written) {
  UConverter* converter = icu_text_converter_for(code_page);
  if (converter == nullptr) return icu_text_result::unknown_code_page;
  UErrorCode status = U_ZERO_ERROR;
  const int count = ucnv_fromUChars(converter, dst, size, text.getBuffer(), text.length(), &status);
  const icu_text_result result = icu_text_outcome(status);
  if (result == icu_text_result::ok) written = count;
  return result;
}

icu_text_result icu_text_encode(const icu::UnicodeString& text, const char* code_page,
                                std::string& bytes) {
  bytes.clear();
  UConverter* converter = icu_text_converter_for(code_page);
  if (converter == nullptr) return icu_text_result::unknown_code_page;
  return kp_log_no_bad_alloc([&] {
    UErrorCode status = U_ZERO_ERROR;
    auto encode = [&] {
      status = U_ZERO_ERROR;
      return ucnv_fromUChars(converter, bytes.data(), static_cast<int>(bytes.size()),
                             text.getBuffer(), text.length(), &status);
    };
    bytes.resize(static_cast<size_t>(text.length()) + 16);
    int count = encode();
    if (status == U_BUFFER_OVERFLOW_ERROR) {
      bytes.resize(static_cast<size_t>(count));
      count = encode();
    }
    bytes.resize(U_SUCCESS(status) ? static_cast<size_t>(count) : 0);
    return icu_text_outcome(status);
  });
}

icu_text_result icu_text_count_units(const char* bytes, const char* code_page, int& units) {
  UConverter* converter = icu_text_converter_for(code_page);
  if (converter == nullptr) return icu_text_result::unknown_code_page;
  const size_t size = std::strlen(bytes);
  if (size <= INT32_MAX && icu_text_is_plain_ascii(converter, bytes, size)) {
    units = static_cast<int>(size);
    return icu_text_result::ok;
  }
  icu::UnicodeString text;
  const icu_text_result result = icu_text_decode_with(converter, bytes, text);
  if (result == icu_text_result::ok) units = text.length();
  return result;
}

// Bytes that the first `units` units of the text take in the code page.
static int icu_text_encoded_size(UConverter* converter, const icu::UnicodeString& text, int units) {
  UErrorCode status = U_ZERO_ERROR;
  return ucnv_fromUChars(converter, nullptr, 0, text.getBuffer(), units, &status);
}

// The longest prefix of whole characters that takes at most `size` bytes.
static int icu_text_prefix_that_fits(UConverter* converter, const icu::UnicodeString& text,
                                     int size) {
  int fits = 0;
  int too_long = text.length();
  while (too_long - fits > 1) {
    const int middle = fits + (too_long - fits) / 2;
    (icu_text_encoded_size(converter, text, middle) <= size ? fits : too_long) = middle;
  }
  const char16_t* units = text.getBuffer();
  U16_SET_CP_START(units, 0, fits);
  return fits;
}

icu_text_result icu_text_cut(const char* bytes, const char* code_page, int n_units, char* dst,
                             int size, int& written) {
  if (n_units < 0 || size < 0) return icu_text_result::not_converted;
  UConverter* converter = icu_text_converter_for(code_page);
  if (converter == nullptr) return icu_text_result::unknown_code_page;
  icu::UnicodeString text;
  const icu_text_result decoded = icu_text_decode_with(converter, bytes, text);
  if (decoded != icu_text_result::ok) return decoded;
  text.truncate(n_units);
  if (icu_text_encoded_size(converter, text, text.length()) > size) {
    text.truncate(icu_text_prefix_that_fits(converter, text, size));
  }
  return icu_text_encode(text, code_page, dst, size, written);
}

bool icu_text_convert(const char* src, const char* from, const char* to, char* dst, unsigned& len) {
  if (len > INT32_MAX) return false;
  icu::UnicodeString text;
  int written = 0;
  if (icu_text_decode(src, from, text) != icu_text_result::ok) return false;
  if (icu_text_encode(text, to, dst, static_cast<int>(len), written) != icu_text_result::ok) {
    return false;
  }
  dst[written] = '\0';
  len = static_cast<unsigned>(written);
  return true;
}

bool icu_text_kept_code_page::choose(const char* code_page) {
  return kp_log_no_bad_alloc([=, this] {
    const char* name = icu_text_resolved(code_page);
    UErrorCode status = U_ZERO_ERROR;
    const bool usable = kp_per_thread<icu_text_converters>::get().find(name, status) != nullptr;
    auto mine = std::make_unique<const choice>(choice{name, usable});
    const choice* none = nullptr;
    if (!choice_.compare_exchange_strong(none, mine.get(), std::memory_order_acq_rel)) return true;
    static_cast<void>(mine.release());  // kept to the end of the process
    return usable;
  });
}

icu_text_result icu_text_kept_code_page::encode(const icu::UnicodeString& text, char* dst, int size,
                                                int& written) const {
  const choice* kept = choice_.load(std::memory_order_acquire);
  if (kept == nullptr || !kept->is_usable) return icu_text_result::unknown_code_page;
  return icu_text_encode(text, kept->name.c_str(), dst, size, written);
}

bool icu_text_default_is_usable() {
  UErrorCode status = U_ZERO_ERROR;
  const icu_text_handle probe(ucnv_open(nullptr, &status));
  return U_SUCCESS(status) && probe != nullptr;
}
