// The formatters that show values on the direct road.
#ifndef KP_LOG_LOGMSG_ICU_FORMATS_H
#define KP_LOG_LOGMSG_ICU_FORMATS_H

#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/numfmt.h>
#include <unicode/timezone.h>

#include <array>
#include <memory>

#include "logging/logmsg_placeholder.h"

// The formatters that a message pattern uses for each kind of value, taken from patterns that ICU
// built, in one locale. Made when first needed. Each thread has its own.
class logmsg_icu_formats {
 public:
  // The calling thread's formatters for ICU's default locale as it is now.
  static logmsg_icu_formats& current();

  // Null when ICU has no number formatter for that kind in this locale.
  const icu::NumberFormat* number(logmsg_kind kind);
  // In ICU's default time zone as it is now; null when ICU has none.
  const icu::DateFormat* date(logmsg_kind kind);

  logmsg_icu_formats() = default;
  bool is_for(const icu::Locale& locale) const { return locale_ == locale; }
  void start_over(const icu::Locale& locale);

 private:
  struct slot {
    bool is_made = false;
    std::unique_ptr<icu::Format> format;
  };

  slot& made(logmsg_kind kind);
  void follow_time_zone();

  icu::Locale locale_ = icu::Locale::getRoot();
  std::unique_ptr<icu::TimeZone> zone_;  // the one that the date and time formatters use
  std::array<slot, 8> slots_;            // by kind
};

#endif
