#include "logging/icu_text.h"

#include <unicode/ucnv.h>
#include <unicode/uset.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "logging/log_util_kept_text.h"
#include "logging/log_util_per_thread.h"
#include "logging/raise.h"
#include "logging/settings.h"

struct icu_text_closer {
  void operator()(UConverter* converter) const noexcept { ucnv_close(converter); }
};
using icu_text_handle = std::unique_ptr<UConverter, icu_text_closer>;

// A converter that is kept for the texts to come.
struct icu_text_kept_converter {
  std::string name;  // as it was asked for
  icu_text_handle handle;
};

// Open converters of one thread, by the name they were asked for.
class icu_text_converters {
 public:
  // The converter, valid until the next call; null, and a failure in `status`, when ICU opens none.
  icu_text_kept_converter* find(const char* name, UErrorCode& status) {
    for (icu_text_kept_converter& kept : slots_) {
      if (kept.handle && kept.name == name) return &kept;
    }
    return open(name, status);
  }

 private:
  icu_text_kept_converter* open(const char* name, UErrorCode& status) {
    std::string copy(name);
    icu_text_handle converter(ucnv_open(name, &status));
    if (U_FAILURE(status) || !converter) return nullptr;
    icu_text_kept_converter& victim = slots_[next_];
    next_ = (next_ + 1) % slots_.size();
    victim.name = std::move(copy);
    victim.handle = std::move(converter);
    return &victim;
  }

  std::array<icu_text_kept_converter, 8> slots_;
  size_t next_ = 0;  // the slot that was filled longest ago
};

const char* icu_text_default_name() noexcept {
  const char* const own = kp_log_settings::current().default_code_page;
  const char* const name = own != nullptr ? own : ucnv_getDefaultName();
  return name != nullptr ? name : "";
}

static const char* icu_text_resolved(const char* code_page) {
  return code_page != nullptr && *code_page != '\0' ? code_page : icu_text_default_name();
}

static icu_text_kept_converter* icu_text_converter_for(const char* code_page) {
  UErrorCode status = U_ZERO_ERROR;
  icu_text_kept_converter* converter = kp_log_no_bad_alloc([=, &status] {
    return kp_per_thread<icu_text_converters>::get().find(icu_text_resolved(code_page), status);
  });
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  return converter;
}

static icu_text_result icu_text_outcome(UErrorCode status) {
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  return U_FAILURE(status) ? icu_text_result::not_converted : icu_text_result::ok;
}

// The converter, to be reset and used for another text; null and a failure in `status` when there
// is none. Every conversion begins here, because ICU's reset leaves a converter of compound text in
// the character set of the text before: that one is opened anew.
static UConverter* icu_text_to_be_reset(icu_text_kept_converter& kept, UErrorCode& status) {
  if (ucnv_getType(kept.handle.get()) == UCNV_COMPOUND_TEXT) {
    icu_text_handle fresh(ucnv_open(kept.name.c_str(), &status));
    if (U_FAILURE(status) || !fresh) return nullptr;
    kept.handle = std::move(fresh);
  }
  return kept.handle.get();
}

// --- Decoding ---

// Of code pages that are: every byte, or ill-formed sequence, makes one unit at most.
static bool icu_text_extends_ascii(const icu_text_kept_converter& kept) {
  const UConverterType type = ucnv_getType(kept.handle.get());
  return type == UCNV_UTF8 || type == UCNV_LATIN_1 || type == UCNV_US_ASCII;
}

// Whether the bytes stand for themselves in Unicode, one unit each, read by this converter.
static bool icu_text_is_plain_ascii(const icu_text_kept_converter& kept, const char* bytes,
                                    size_t length) {
  if (!icu_text_extends_ascii(kept)) return false;
  return std::all_of(bytes, bytes + length,
                     [](char c) { return static_cast<signed char>(c) >= 0; });
}

static char16_t* icu_text_buffer_of(icu::UnicodeString& text, size_t room) {
  char16_t* units = text.getBuffer(static_cast<int>(room));
  if (units == nullptr) kp_log_raise_alloc();
  return units;
}

static void icu_text_widen(const char* bytes, size_t length, icu::UnicodeString& text) {
  char16_t* units = icu_text_buffer_of(text, length);
  std::transform(bytes, bytes + length, units, [](char c) { return static_cast<char16_t>(c); });
  text.releaseBuffer(static_cast<int>(length));
}

// Decodes as much as `room` units hold; U_BUFFER_OVERFLOW_ERROR when that is not the end. ICU takes
// no more than 2 GiB at once.
static UErrorCode icu_text_decode_into(icu_text_kept_converter& kept, const char* bytes,
                                       size_t size, size_t room, icu::UnicodeString& text) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = icu_text_to_be_reset(kept, status);
  ucnv_resetToUnicode(converter);
  char16_t* const units = icu_text_buffer_of(text, room);
  char16_t* end = units;
  const char* const bytes_end = bytes + size;
  do {
    const char* const until = bytes + std::min<ptrdiff_t>(bytes_end - bytes, INT32_MAX);
    ucnv_toUnicode(converter, &end, units + room, &bytes, until, nullptr,
                   static_cast<UBool>(until == bytes_end), &status);
  } while (U_SUCCESS(status) && bytes != bytes_end);
  text.releaseBuffer(static_cast<int>(end - units));
  return status;
}

// The longest text that is decoded whole, in bytes and in units.
static constexpr int icu_text_longest = INT32_MAX / 4;

// Decodes the first `most` units and, so that a longer text is known as such, one more. Where
// `most` is beyond icu_text_longest the text is decoded whole, or not at all.
static icu_text_result icu_text_decode_up_to(icu_text_kept_converter& kept, const char* bytes,
                                             int most, icu::UnicodeString& text) {
  const bool whole = most > icu_text_longest;
  const size_t size = std::strlen(bytes);
  if (whole && size > size_t{icu_text_longest}) return icu_text_result::not_converted;
  const size_t limit = static_cast<size_t>(std::min(most, icu_text_longest)) + 1;
  const size_t plain = std::min(size, limit);
  UErrorCode status = U_ZERO_ERROR;
  if (icu_text_is_plain_ascii(kept, bytes, plain)) {
    icu_text_widen(bytes, plain, text);
  } else {
    size_t room = std::min(size + 1, limit);
    while ((status = icu_text_decode_into(kept, bytes, size, room, text)) ==
               U_BUFFER_OVERFLOW_ERROR &&
           room < limit)
      room = std::min(2 * room, limit);
  }
  if (status == U_BUFFER_OVERFLOW_ERROR && !whole) status = U_ZERO_ERROR;
  if (U_FAILURE(status)) text.remove();
  return icu_text_outcome(status);
}

icu_text_result icu_text_decode(const char* bytes, const char* code_page,
                                icu::UnicodeString& text) {
  text.remove();
  icu_text_kept_converter* converter = icu_text_converter_for(code_page);
  if (converter == nullptr) return icu_text_result::unknown_code_page;
  return icu_text_decode_up_to(*converter, bytes, INT32_MAX, text);
}

icu_text_result icu_text_count_units(const char* bytes, const char* code_page, int most,
                                     int& units) {
  icu_text_kept_converter* converter = icu_text_converter_for(code_page);
  if (converter == nullptr) return icu_text_result::unknown_code_page;
  const size_t plain = strnlen(bytes, static_cast<size_t>(most) + 1);
  if (plain <= INT32_MAX && icu_text_is_plain_ascii(*converter, bytes, plain)) {
    units = static_cast<int>(plain);
    return icu_text_result::ok;
  }
  icu::UnicodeString text;
  const icu_text_result result = icu_text_decode_up_to(*converter, bytes, most, text);
  if (result == icu_text_result::ok) units = text.length();
  return result;
}

bool icu_text_has_a_byte_for_each_unit(const char* code_page) {
  if (code_page == nullptr || *code_page == '\0') return false;
  const icu_text_kept_converter* const converter = icu_text_converter_for(code_page);
  return converter != nullptr && icu_text_extends_ascii(*converter);
}

// --- Encoding ---

// The bytes that the first `units` units of the text take; as many of them as there is room for are
// written to `dst`.
static int icu_text_encode_into(icu_text_kept_converter& kept, const icu::UnicodeString& text,
                                int units, char* dst, int size, UErrorCode& status) {
  UConverter* converter = icu_text_to_be_reset(kept, status);
  return ucnv_fromUChars(converter, dst, size, text.getBuffer(), units, &status);
}

static icu_text_result icu_text_encode_with(icu_text_kept_converter& kept,
                                            const icu::UnicodeString& text, char* dst, int size,
                                            int& written) {
  UErrorCode status = U_ZERO_ERROR;
  const int count = icu_text_encode_into(kept, text, text.length(), dst, size, status);
  const icu_text_result result = icu_text_outcome(status);
  if (result == icu_text_result::ok) written = count;
  return result;
}

icu_text_result icu_text_encode(const icu::UnicodeString& text, const char* code_page, char* dst,
                                int size, int& written) {
  icu_text_kept_converter* converter = icu_text_converter_for(code_page);
  if (converter == nullptr) return icu_text_result::unknown_code_page;
  return icu_text_encode_with(*converter, text, dst, size, written);
}

icu_text_result icu_text_encode(const icu::UnicodeString& text, const char* code_page,
                                std::string& bytes) {
  bytes.clear();
  icu_text_kept_converter* converter = icu_text_converter_for(code_page);
  if (converter == nullptr) return icu_text_result::unknown_code_page;
  return kp_log_no_bad_alloc([&] {
    UErrorCode status = U_ZERO_ERROR;
    auto encode = [&] {
      status = U_ZERO_ERROR;
      return icu_text_encode_into(*converter, text, text.length(), bytes.data(),
                                  static_cast<int>(bytes.size()), status);
    };
    bytes.resize(static_cast<size_t>(text.length()) + 16);
    int count = encode();
    // The size that ICU tells of a text that does not fit may be too small in some code pages.
    while (status == U_BUFFER_OVERFLOW_ERROR) {
      bytes.resize(std::max(static_cast<size_t>(count), bytes.size() + bytes.size() / 8));
      count = encode();
    }
    bytes.resize(U_SUCCESS(status) ? static_cast<size_t>(count) : 0);
    return icu_text_outcome(status);
  });
}

// --- Cutting ---

// Never divides a pair of surrogates: the cut falls before it.
static void icu_text_keep_units(icu::UnicodeString& text, int units) {
  if (units >= text.length()) return;
  const char16_t* all = text.getBuffer();
  U16_SET_CP_START(all, 0, units);
  text.truncate(units);
}

static int icu_text_encoded_size(icu_text_kept_converter& kept, const icu::UnicodeString& text,
                                 int units) {
  UErrorCode status = U_ZERO_ERROR;
  const int size = icu_text_encode_into(kept, text, units, nullptr, 0, status);
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  return size;
}

// The longest prefix that takes at most `size` bytes, in units.
static int icu_text_prefix_that_fits(icu_text_kept_converter& kept, const icu::UnicodeString& text,
                                     int size) {
  int fits = 0;
  int too_long = text.length();
  while (too_long - fits > 1) {
    const int middle = fits + (too_long - fits) / 2;
    (icu_text_encoded_size(kept, text, middle) <= size ? fits : too_long) = middle;
  }
  return fits;
}

icu_text_result icu_text_cut(const char* bytes, const char* code_page, int n_units, char* dst,
                             int size, int& written) {
  if (n_units < 0 || size < 0) return icu_text_result::not_converted;
  icu_text_kept_converter* converter = icu_text_converter_for(code_page);
  if (converter == nullptr) return icu_text_result::unknown_code_page;
  icu::UnicodeString text;
  const icu_text_result decoded = icu_text_decode_up_to(*converter, bytes, n_units, text);
  if (decoded != icu_text_result::ok) return decoded;
  icu_text_keep_units(text, n_units);
  if (icu_text_encoded_size(*converter, text, text.length()) > size)
    icu_text_keep_units(text, icu_text_prefix_that_fits(*converter, text, size));
  return icu_text_encode_with(*converter, text, dst, size, written);
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

// --- What stays as it is ---

// Whether every byte is a character of its own, and every character a byte of its own.
static bool icu_text_is_bytewise(const UConverter* converter) {
  switch (ucnv_getType(converter)) {
    case UCNV_LATIN_1:
    case UCNV_US_ASCII:
      return true;
    case UCNV_SBCS:
      return ucnv_getMaxCharSize(converter) == 1;
    default:
      return false;
  }
}

// Whether the converter has bytes for several characters together; they are the last of its set.
static bool icu_text_joins_characters(const UConverter* converter) {
  const std::unique_ptr<USet, decltype(&uset_close)> set(uset_openEmpty(), &uset_close);
  if (set == nullptr) kp_log_raise_alloc();
  UErrorCode status = U_ZERO_ERROR;
  ucnv_getUnicodeSet(converter, set.get(), UCNV_ROUNDTRIP_AND_FALLBACK_SET, &status);
  const int last = uset_getItemCount(set.get()) - 1;
  int start = 0;
  int end = 0;
  const bool is_string =
      last >= 0 && uset_getItem(set.get(), last, &start, &end, nullptr, 0, &status) > 0;
  return is_string || U_FAILURE(status);
}

bool icu_text_is_piecewise(const char* code_page) {
  const icu_text_kept_converter* const kept = icu_text_converter_for(code_page);
  if (kept == nullptr) return false;
  const UConverter* const converter = kept->handle.get();
  if (ucnv_getType(converter) == UCNV_UTF8) return true;
  return icu_text_is_bytewise(converter) && !icu_text_joins_characters(converter);
}

icu_text_copying::icu_text_copying(const char* from, const char* to) {
  const icu_text_kept_converter* const reading = icu_text_converter_for(from);
  if (reading == nullptr) return;
  const bool reads_utf8 = ucnv_getType(reading->handle.get()) == UCNV_UTF8;
  if (!reads_utf8 && !icu_text_is_bytewise(reading->handle.get())) return;
  compare(from, to, 1, 127);
  keeps_ascii_ = std::all_of(&kept_[1], &kept_[128], [](bool kept) { return kept; });
  if (!reads_utf8) {
    compare(from, to, 128, 255);
    return;
  }
  const icu_text_kept_converter* const writing = icu_text_converter_for(to);
  keeps_utf8_ = writing != nullptr && ucnv_getType(writing->handle.get()) == UCNV_UTF8;
}

// As many units as bytes, and as many bytes again: then the n-th of each belong together, for no
// byte gives less than one unit, and a piecewise code page writes either no unit in more than one
// byte or none in less.
void icu_text_copying::compare(const char* from, const char* to, int first, int last) {
  std::string bytes;
  for (int byte = first; byte <= last; ++byte) bytes += static_cast<char>(byte);
  icu::UnicodeString units;
  std::string again;
  if (icu_text_decode(bytes.c_str(), from, units) != icu_text_result::ok ||
      units.length() != static_cast<int>(bytes.size()) ||
      icu_text_encode(units, to, again) != icu_text_result::ok || again.size() != bytes.size()) {
    return;
  }
  for (size_t i = 0; i < bytes.size(); ++i)
    kept_[static_cast<unsigned char>(bytes[i])] = again[i] == bytes[i];
}

static bool icu_text_is_ascii(std::string_view text) noexcept {
  constexpr uint64_t high_bits = 0x8080808080808080;
  const char* at = text.data();
  size_t left = text.size();
  for (; left >= 8; at += 8, left -= 8) {
    uint64_t word = 0;
    std::memcpy(&word, at, sizeof word);
    if ((word & high_bits) != 0) return false;
  }
  signed char all = 0;
  for (; left != 0; ++at, --left) all = static_cast<signed char>(all | *at);
  return all >= 0;
}

// What the second byte of a character may be at most and at least, and how many follow the first;
// none where the first begins no character.
struct icu_text_utf8_rule {
  int low;
  int high;
  size_t following;
};

static icu_text_utf8_rule icu_text_utf8_rule_of(unsigned char first) noexcept {
  if (first < 0xC2 || first > 0xF4) return {0, 0, 0};
  if (first < 0xE0) return {0x80, 0xBF, 1};
  if (first < 0xF0) return {first == 0xE0 ? 0xA0 : 0x80, first == 0xED ? 0x9F : 0xBF, 2};
  return {first == 0xF0 ? 0x90 : 0x80, first == 0xF4 ? 0x8F : 0xBF, 3};
}

static bool icu_text_is_utf8(std::string_view text) noexcept {
  const auto byte_at = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  for (size_t at = 0; at < text.size(); ++at) {
    if (byte_at(at) < 0x80) continue;
    const icu_text_utf8_rule rule = icu_text_utf8_rule_of(byte_at(at));
    if (rule.following == 0 || text.size() - at <= rule.following) return false;
    if (byte_at(at + 1) < rule.low || byte_at(at + 1) > rule.high) return false;
    for (size_t i = 2; i <= rule.following; ++i)
      if ((byte_at(at + i) & 0xC0) != 0x80) return false;
    at += rule.following;
  }
  return true;
}

bool icu_text_copying::keeps(std::string_view text) const noexcept {
  if (keeps_ascii_ && icu_text_is_ascii(text)) return true;
  if (keeps_utf8_) return icu_text_is_utf8(text);
  return std::all_of(text.begin(), text.end(),
                     [this](char c) { return kept_[static_cast<unsigned char>(c)]; });
}

bool icu_text_is_well_formed(const icu::UnicodeString& text) noexcept {
  const int length = text.length();
  for (int at = 0; at < length; ++at) {
    if (!U16_IS_SURROGATE(text[at])) continue;
    if (!U16_IS_LEAD(text[at]) || !U16_IS_TRAIL(text.charAt(at + 1))) return false;
    ++at;
  }
  return true;
}

bool icu_text_kept_code_page::choose(const char* code_page) {
  return kp_log_no_bad_alloc([=, this] {
    const char* name = icu_text_resolved(code_page);
    UErrorCode status = U_ZERO_ERROR;
    const bool usable = kp_per_thread<icu_text_converters>::get().find(name, status) != nullptr;
    const char* const mine = usable ? kp_log_kept_text(name) : &unusable_;
    const char* none = nullptr;
    return !name_.compare_exchange_strong(none, mine, std::memory_order_acq_rel) || usable;
  });
}

icu_text_result icu_text_kept_code_page::encode(const icu::UnicodeString& text, char* dst, int size,
                                                int& written) const {
  const char* const name = usable_name();
  if (name == nullptr) return icu_text_result::unknown_code_page;
  return icu_text_encode(text, name, dst, size, written);
}

bool icu_text_default_is_usable() {
  UErrorCode status = U_ZERO_ERROR;
  const icu_text_handle probe(ucnv_open(kp_log_settings::current().default_code_page, &status));
  return U_SUCCESS(status) && probe != nullptr;
}
