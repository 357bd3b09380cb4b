// The formatters that show values on the direct road.
#ifndef KP_LOG_LOGMSG_ICU_FORMATS_H
#define KP_LOG_LOGMSG_ICU_FORMATS_H

#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/numfmt.h>

#include <array>
#include <memory>

#include "logging/logmsg_placeholder.h"

// The formatter that a message pattern uses for that kind of value, one that may be kept; null when
// ICU makes none. Raises KPX_memory_alloc.
std::unique_ptr<icu::Format> logmsg_make_icu_format(logmsg_kind kind, const icu::Locale& locale);

// The formatters that a message pattern uses for each kind of value, taken from patterns that ICU
// built, in one locale. Made when first needed. Each thread has its own.
class logmsg_icu_formats {
 public:
  // The calling thread's formatters for that locale.
  static logmsg_icu_formats& in(const icu::Locale& locale);

  // Null when ICU makes no number formatter for that kind in this locale. Both raise
  // KPX_memory_alloc, and keep no formatter made while memory was short.
  const icu::NumberFormat* number(logmsg_kind kind);
  // In ICU's default time zone as it is now; null when ICU makes none.
  const icu::DateFormat* date(logmsg_kind kind);

  logmsg_icu_formats() = default;
  bool is_for(const icu::Locale& locale) const { return locale_ == locale; }
  void start_over(const icu::Locale& locale);

 private:
  const icu::Format* made(logmsg_kind kind);
  void follow_time_zone(logmsg_kind kind);

  icu::Locale locale_ = icu::Locale::getRoot();
  bool has_own_zone_ = false;  // the locale names a time zone, so the default one does not count
  std::array<std::unique_ptr<icu::Format>, 8> formats_;  // by kind; null until made
};

#endif
