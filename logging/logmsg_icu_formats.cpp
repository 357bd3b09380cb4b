#include "logging/logmsg_icu_formats.h"

#include <unicode/msgfmt.h>
#include <unicode/smpdtfmt.h>

#include "logging/log_util_per_thread.h"
#include "logging/logmsg_icu_pattern.h"
#include "logging/raise.h"

using logmsg_icu_format = std::unique_ptr<icu::Format>;

// --- Making formatters ---

// The formatter that ICU's own message format uses for that kind, or null.
static logmsg_icu_format format_of(logmsg_kind kind, const icu::Locale& locale) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::MessageFormat message(icu::UnicodeString(logmsg_pattern_of(kind)), locale, status);
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  if (U_FAILURE(status)) return nullptr;
  int count = 0;
  const icu::Format** formats = message.getFormats(count);
  if (formats == nullptr || count != 1 || formats[0] == nullptr) return nullptr;
  return logmsg_icu_format(formats[0]->clone());
}

// The default time zone may have changed between the making of the two.
static void take_zone(icu::Format& format, const icu::Format& from) {
  auto* dates = dynamic_cast<icu::DateFormat*>(&format);
  const auto* dates_from = dynamic_cast<const icu::DateFormat*>(&from);
  if (dates != nullptr && dates_from != nullptr) dates->setTimeZone(dates_from->getTimeZone());
}

// Whether ICU gave up on the locale and took the date pattern that it has for that.
static bool is_last_resort(const icu::Format& format) {
  const auto* dates = dynamic_cast<const icu::SimpleDateFormat*>(&format);
  if (dates == nullptr) return false;
  icu::UnicodeString pattern;
  return dates->toPattern(pattern) == icu::UnicodeString(u"yMMdd hh:mm a");
}

// What the formatter shows for a year of values, negative and positive.
static icu::UnicodeString sample_of(const icu::Format& format) {
  constexpr double step = 2682720000.5;  // a good month in milliseconds
  const bool shows_dates = dynamic_cast<const icu::DateFormat*>(&format) != nullptr;
  icu::UnicodeString text;
  UErrorCode status = U_ZERO_ERROR;
  for (int i = -6; i <= 6; ++i) {
    const icu::Formattable date(i * step, icu::Formattable::kIsDate);
    format.format(shows_dates ? date : icu::Formattable(i * step), text, status);
  }
  if (status == U_MEMORY_ALLOCATION_ERROR || text.isBogus()) kp_log_raise_alloc();
  return text;
}

// When memory is short, ICU makes defective formatters and reports success; so two are made, and
// they must show the same. What escapes this: two that are defective in the same way, with other
// than the last resort.
std::unique_ptr<icu::Format> logmsg_make_icu_format(logmsg_kind kind, const icu::Locale& locale) {
  logmsg_icu_format format = format_of(kind, locale);
  const logmsg_icu_format again = format_of(kind, locale);
  if (!format || !again || is_last_resort(*format)) return nullptr;
  take_zone(*again, *format);
  if (sample_of(*format) != sample_of(*again)) kp_log_raise_alloc();
  return format;
}

// --- Keeping them ---

static bool names_a_zone(const icu::Locale& locale) {
  char zone[8];
  UErrorCode status = U_ZERO_ERROR;
  return locale.getKeywordValue("timezone", zone, sizeof zone, status) > 0;
}

void logmsg_icu_formats::start_over(const icu::Locale& locale) {
  formats_ = {};
  locale_ = locale;
  if (locale_.isBogus()) {
    locale_ = icu::Locale::getRoot();
    kp_log_raise_alloc();
  }
  has_own_zone_ = names_a_zone(locale);
}

const icu::Format* logmsg_icu_formats::made(logmsg_kind kind) {
  logmsg_icu_format& kept = formats_[static_cast<size_t>(kind)];
  if (!kept) kept = logmsg_make_icu_format(kind, locale_);
  return kept.get();
}

const icu::NumberFormat* logmsg_icu_formats::number(logmsg_kind kind) {
  return dynamic_cast<const icu::NumberFormat*>(made(kind));
}

// A date or time formatter has the time zone that was ICU's default when it was made, whatever
// other threads set since. Compared with the default of now it tells itself whether it still holds.
void logmsg_icu_formats::follow_time_zone(logmsg_kind kind) {
  const logmsg_icu_format& kept = formats_[static_cast<size_t>(kind)];
  const auto* dates = dynamic_cast<const icu::DateFormat*>(kept.get());
  if (dates == nullptr || has_own_zone_) return;
  const std::unique_ptr<icu::TimeZone> now(icu::TimeZone::createDefault());
  if (!now || dates->getTimeZone() != *now) formats_[static_cast<size_t>(kind)].reset();
}

const icu::DateFormat* logmsg_icu_formats::date(logmsg_kind kind) {
  follow_time_zone(kind);
  return dynamic_cast<const icu::DateFormat*>(made(kind));
}

// The locales that a thread used last.
struct logmsg_icu_locales {
  std::array<logmsg_icu_formats, 4> formats;
  size_t next = 0;
};

logmsg_icu_formats& logmsg_icu_formats::in(const icu::Locale& locale) {
  logmsg_icu_locales& locales = kp_per_thread<logmsg_icu_locales>::get();
  for (logmsg_icu_formats& known : locales.formats) {
    if (known.is_for(locale)) return known;
  }
  logmsg_icu_formats& victim = locales.formats[locales.next++ % locales.formats.size()];
  victim.start_over(locale);
  return victim;
}
