// ICU's process-wide settings, for a scope; and ICU without memory.
#ifndef TESTS_SUPPORT_ICU_SETTING_H
#define TESTS_SUPPORT_ICU_SETTING_H

#include <gtest/gtest.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/uclean.h>
#include <unicode/ucnv.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>

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

// While one lives, `fails` is asked at each allocation that ICU makes in this thread; true makes
// the allocation fail. One at a time. The memory functions stay installed afterwards.
class icu_allocations {
 public:
  explicit icu_allocations(std::function<bool()> fails) : fails_(std::move(fails)) {
    UErrorCode status = U_ZERO_ERROR;
    u_setMemoryFunctions(nullptr, allocate, reallocate, release, &status);
    EXPECT_TRUE(U_SUCCESS(status));
    now = this;
  }
  ~icu_allocations() { now = nullptr; }
  icu_allocations(const icu_allocations&) = delete;
  icu_allocations& operator=(const icu_allocations&) = delete;

 private:
  static bool fail() { return now != nullptr && now->fails_(); }
  static void* allocate(const void*, size_t size) { return fail() ? nullptr : std::malloc(size); }
  static void* reallocate(const void*, void* block, size_t size) {
    return fail() ? nullptr : std::realloc(block, size);
  }
  static void release(const void*, void* block) { std::free(block); }

  const std::function<bool()> fails_;
  inline static thread_local const icu_allocations* now = nullptr;
};

// While one lives, every allocation of ICU in this thread fails. ICU itself does not survive that
// everywhere (opening a resource bundle ends in a deadlock); opening a converter does.
class icu_out_of_memory : icu_allocations {
 public:
  icu_out_of_memory() : icu_allocations([] { return true; }) {}
};

#endif
