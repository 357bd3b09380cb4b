// Any number in any locale of ICU, written without ICU, beside what ICU's message format shows. The
// first byte is the kind, the next two the locale, then follow eight of a double or four of an int.
#include <unicode/msgfmt.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "logging/logmsg_icu_pattern.h"
#include "logging/logmsg_numbers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static constexpr std::array<logmsg_kind, 3> kinds = {logmsg_kind::integer, logmsg_kind::floating,
                                                     logmsg_kind::percent};

// Locales with other digits and rules than theirs stand behind ICU's own.
static icu::Locale locale_of(const uint8_t* data) {
  static const char* const more[] = {"en_US@numbers=hanidec", "de_DE@numbers=adlm",
                                     "fr_FR@cf=account", "ar_EG@numbers=latn",
                                     "en_US@numbers=roman"};
  int count = 0;
  const icu::Locale* const all = icu::Locale::getAvailableLocales(count);
  const int wanted = (data[0] * 256 + data[1]) % (count + static_cast<int>(std::size(more)));
  return wanted < count ? all[wanted] : icu::Locale(more[wanted - count]);
}

static icu::UnicodeString shown_by_icu(logmsg_kind kind, const icu::Locale& locale,
                                       const icu::Formattable& value) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::MessageFormat format(icu::UnicodeString(logmsg_pattern_of(kind)), locale, status);
  icu::FieldPosition field(icu::FieldPosition::DONT_CARE);
  icu::UnicodeString text;
  format.format(&value, 1, text, field, status);
  if (U_FAILURE(status)) std::abort();
  return text;
}

template <class Value>
static void compare(logmsg_kind kind, const icu::Locale& locale, const uint8_t* data) {
  Value value{};
  std::memcpy(&value, data, sizeof value);
  const auto symbols = logmsg_number_symbols_of(kind, locale);
  if (!symbols) return;
  const auto style = logmsg_utf16_style(*symbols);
  if (!style) std::abort();
  char16_t text[logmsg_number_style<char16_t>::room];
  const char16_t* const end = style->write(value, text);
  if (end == nullptr) return;
  const icu::UnicodeString written(text, static_cast<int>(end - text));
  if (written != shown_by_icu(kind, locale, value)) std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t before_value = 3;
  if (size != before_value + sizeof(int) && size != before_value + sizeof(double)) return 0;
  const logmsg_kind kind = kinds[data[0] % kinds.size()];
  const icu::Locale locale = locale_of(data + 1);
  if (size == before_value + sizeof(int))
    compare<int>(kind, locale, data + before_value);
  else
    compare<double>(kind, locale, data + before_value);
  return 0;
}
