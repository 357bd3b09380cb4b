// Text in code pages: ICU's converters behind a few functions.
#ifndef KP_LOG_ICU_TEXT_H
#define KP_LOG_ICU_TEXT_H

#include <unicode/unistr.h>

#include <array>
#include <atomic>
#include <string>
#include <string_view>

// A code page is named as ICU names it. Null and "" stand for ICU's default converter, the one that
// is set at the moment of the call. Bytes that a code page does not know are read as U+FFFD, and
// characters that it lacks are written as its substitution character: that is no failure.
//
// Each thread keeps the converters that it used last, so calls share nothing and take no lock of
// ours; equal conversions give equal results whatever was converted before. The host must not call
// u_cleanup() while it still uses the library. A failed allocation raises KPX_memory_alloc.

enum class [[nodiscard]] icu_text_result{
    ok,
    unknown_code_page,  // ICU opens no converter of that name
    not_converted       // too long for the room given, or refused by the converter
};

// Reads `bytes` up to the NUL into `text`. On failure `text` is empty. A text of more than
// 536,870,911 bytes or UTF-16 code units is not converted.
icu_text_result icu_text_decode(const char* bytes, const char* code_page, icu::UnicodeString& text);

// Writes `text` into the `size` bytes at `dst`; `written` counts the bytes. A NUL follows them only
// where there is room left. On failure `written` is unchanged, and the bytes at `dst` are
// undefined.
icu_text_result icu_text_encode(const icu::UnicodeString& text, const char* code_page, char* dst,
                                int size, int& written);

// The same, into a string of any length. On failure `bytes` is empty.
icu_text_result icu_text_encode(const icu::UnicodeString& text, const char* code_page,
                                std::string& bytes);

// Counts the UTF-16 code units that `bytes` has after decoding, to `most` + 1: no more than that is
// decoded, however long the text is.
icu_text_result icu_text_count_units(const char* bytes, const char* code_page, int most,
                                     int& units);

// Whether a text in that code page has at least as many bytes as UTF-16 code units. False also
// where that is not known, as of ICU's default converter, which may become another one.
bool icu_text_has_a_byte_for_each_unit(const char* code_page);

// Writes the first `n_units` UTF-16 code units of `bytes` to `dst`, in the same code page; where
// `size` bytes do not hold them, as many whole characters as they hold. Adds no NUL of its own;
// `written` counts the bytes. Decodes `n_units` + 1 units at most. A cut between the halves of a
// surrogate pair falls before the pair.
icu_text_result icu_text_cut(const char* bytes, const char* code_page, int n_units, char* dst,
                             int size, int& written);

// Converts `src` from one code page to another, into the `len` bytes at `dst`. On success a NUL
// follows the bytes written (so `dst` has room for len + 1 bytes) and `len` is their count. On
// failure `len` is unchanged.
bool icu_text_convert(const char* src, const char* from, const char* to, char* dst, unsigned& len);

// Whether texts that are written in that code page one by one and put together give what the whole
// gives, where no character is divided: false also where that is not known. Code pages with states
// between characters, or with bytes for several characters together, are not like this.
bool icu_text_is_piecewise(const char* code_page);

// Which texts stay as they are on the way from one code page into another.
class icu_text_copying {
 public:
  icu_text_copying() noexcept = default;
  // `to` must be piecewise.
  icu_text_copying(const char* from, const char* to);

  // Whether the text reads as characters that are written as just these bytes; false also where a
  // converter has to tell. The text holds no NUL.
  bool keeps(std::string_view text) const noexcept;
  // Whether it keeps every text of ASCII characters.
  bool keeps_ascii() const noexcept { return keeps_ascii_; }

 private:
  void compare(const char* from, const char* to, int first, int last);

  bool keeps_ascii_ = false;
  bool keeps_utf8_ = false;
  std::array<bool, 256> kept_ = {};  // bytes that are characters, and stay, wherever they stand
};

// Whether each surrogate is half of a pair.
bool icu_text_is_well_formed(const icu::UnicodeString& text) noexcept;

// A code page that is chosen once and kept ever after, even when ICU opened no converter for it
// then: writing text in it fails each time. Constant-initialised. Any thread may call any
// operation.
class icu_text_kept_code_page {
 public:
  constexpr icu_text_kept_code_page() noexcept = default;
  icu_text_kept_code_page(const icu_text_kept_code_page&) = delete;
  icu_text_kept_code_page& operator=(const icu_text_kept_code_page&) = delete;

  bool is_chosen() const noexcept { return name_.load(std::memory_order_acquire) != nullptr; }
  // Keeps the code page, unless one is kept already. For null and "" that is ICU's default of the
  // moment. False when this very call kept a code page that ICU opened no converter for, be it for
  // want of memory.
  bool choose(const char* code_page);
  // Its name, which kp_log_kept_text keeps; null while none is chosen or none can be used.
  const char* usable_name() const noexcept {
    const char* const name = name_.load(std::memory_order_acquire);
    return name != &unusable_ ? name : nullptr;
  }
  // As icu_text_encode, in the kept code page.
  icu_text_result encode(const icu::UnicodeString& text, char* dst, int size, int& written) const;

 private:
  static constexpr char unusable_ = '\0';   // stands for whichever cannot be used
  std::atomic<const char*> name_{nullptr};  // set once
};

// What an empty name of a code page stands for: that of the settings, or ICU's default converter as
// it is now. Valid until that is set.
const char* icu_text_default_name() noexcept;

// Whether ICU can open that.
bool icu_text_default_is_usable();

#endif
