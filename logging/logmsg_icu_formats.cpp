#include "logging/logmsg_icu_formats.h"

#include <unicode/msgfmt.h>

#include "logging/log_util_per_thread.h"
#include "logging/logmsg_icu_plan.h"

// The formatter that ICU's own message format uses for that kind, or null.
static std::unique_ptr<icu::Format> format_of(logmsg_kind kind, const icu::Locale& locale) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::MessageFormat message(icu::UnicodeString(logmsg_pattern_of(kind)), locale, status);
  if (U_FAILURE(status)) return nullptr;
  int count = 0;
  const icu::Format** formats = message.getFormats(count);
  if (formats == nullptr || count != 1 || formats[0] == nullptr) return nullptr;
  return std::unique_ptr<icu::Format>(formats[0]->clone());
}

void logmsg_icu_formats::start_over(const icu::Locale& locale) {
  slots_ = {};
  zone_.reset();
  locale_ = locale;
}

logmsg_icu_formats::slot& logmsg_icu_formats::made(logmsg_kind kind) {
  slot& kept = slots_[static_cast<size_t>(kind)];
  if (!kept.is_made) {
    kept.format = format_of(kind, locale_);
    kept.is_made = true;
  }
  return kept;
}

const icu::NumberFormat* logmsg_icu_formats::number(logmsg_kind kind) {
  return dynamic_cast<const icu::NumberFormat*>(made(kind).format.get());
}

// Date and time formatters keep the time zone that was ICU's default when they were made.
void logmsg_icu_formats::follow_time_zone() {
  std::unique_ptr<icu::TimeZone> now(icu::TimeZone::createDefault());
  if (zone_ && now && *zone_ == *now) return;
  slots_[static_cast<size_t>(logmsg_kind::date)] = {};
  slots_[static_cast<size_t>(logmsg_kind::time)] = {};
  zone_ = std::move(now);
}

const icu::DateFormat* logmsg_icu_formats::date(logmsg_kind kind) {
  follow_time_zone();
  return dynamic_cast<const icu::DateFormat*>(made(kind).format.get());
}

// The locales that a thread used last.
struct logmsg_icu_locales {
  std::array<logmsg_icu_formats, 4> formats;
  size_t next = 0;
};

logmsg_icu_formats& logmsg_icu_formats::current() {
  logmsg_icu_locales& locales = kp_per_thread<logmsg_icu_locales>::get();
  const icu::Locale& locale = icu::Locale::getDefault();
  for (logmsg_icu_formats& known : locales.formats) {
    if (known.is_for(locale)) return known;
  }
  logmsg_icu_formats& victim = locales.formats[locales.next++ % locales.formats.size()];
  victim.start_over(locale);
  return victim;
}
