// ICU's process-wide settings, for a scope.
#ifndef TESTS_SUPPORT_ICU_SETTING_H
#define TESTS_SUPPORT_ICU_SETTING_H

#include <gtest/gtest.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <memory>
#include <string>

// ICU's default locale.
class icu_locale_setting {
 public:
  explicit icu_locale_setting(const char* name) : before_(icu::Locale::getDefault()) {
    set(icu::Locale::createFromName(name));
  }
  ~icu_locale_setting() { set(before_); }
  icu_locale_setting(const icu_locale_setting&) = delete;
  icu_locale_setting& operator=(const icu_locale_setting&) = delete;

 private:
  static void set(const icu::Locale& locale) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(locale, status);
    EXPECT_TRUE(U_SUCCESS(status));
  }
  const icu::Locale before_;
};

// ICU's default time zone.
class icu_zone_setting {
 public:
  explicit icu_zone_setting(const char* id) : before_(icu::TimeZone::createDefault()) {
    icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone(id));
  }
  ~icu_zone_setting() { icu::TimeZone::adoptDefault(before_.release()); }
  icu_zone_setting(const icu_zone_setting&) = delete;
  icu_zone_setting& operator=(const icu_zone_setting&) = delete;

 private:
  std::unique_ptr<icu::TimeZone> before_;
};

#endif
