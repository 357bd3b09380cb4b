#include "tools/command/icu_zone.h"

#include <unicode/gregocal.h>
#include <unicode/timezone.h>

#include <array>
#include <cmath>
#include <ctime>
#include <memory>

#include "base/kp_clib.h"

static constexpr int milliseconds = 1000;
static constexpr int one_hour = 3600 * milliseconds;

// The zone of localtime_r. Offsets in milliseconds, as ICU counts.
class c_library_zone : public icu::TimeZone {
 public:
  explicit c_library_zone(const icu::UnicodeString& id) : TimeZone(id) {}

  void getOffset(UDate date, UBool is_local, int32_t& raw, int32_t& saved,
                 UErrorCode& status) const override {
    if (U_FAILURE(status)) return;
    struct tm told = told_at(date);
    // A local time that is shown twice or skipped is read with the zone from before.
    if (is_local != 0) told = told_at(date - total(told_at(date - total(told))));
    saved = told.tm_isdst > 0 ? one_hour : 0;
    raw = total(told) - saved;
  }
  int32_t getOffset(uint8_t era, int32_t year, int32_t month, int32_t day, uint8_t weekday,
                    int32_t millis, UErrorCode& status) const override {
    return getOffset(era, year, month, day, weekday, millis, 0, status);
  }
  int32_t getOffset(uint8_t era, int32_t year, int32_t month, int32_t day, uint8_t, int32_t millis,
                    int32_t, UErrorCode& status) const override {
    icu::GregorianCalendar fields(*getGMT(), status);
    fields.set(UCAL_ERA, era);
    fields.set(year, month, day);
    const UDate midnight = std::floor(fields.getTime(status) / (24.0 * one_hour)) * 24.0 * one_hour;
    int32_t raw = 0, saved = 0;
    getOffset(midnight + millis, 1, raw, saved, status);
    return raw + saved;
  }
  int32_t getRawOffset() const override {
    const struct tm told = told_at(getNow());
    return total(told) - (told.tm_isdst > 0 ? one_hour : 0);
  }
  void setRawOffset(int32_t) override {}  // the C library's stays
  UBool useDaylightTime() const override { return static_cast<UBool>(daylight != 0); }
  UBool inDaylightTime(UDate date, UErrorCode&) const override {
    return static_cast<UBool>(told_at(date).tm_isdst > 0);
  }
  TimeZone* clone() const override { return new c_library_zone(*this); }
  UClassID getDynamicClassID() const override {
    static char its_address = 0;
    return &its_address;
  }

 private:
  static UDate getNow() { return icu::Calendar::getNow(); }
  static int32_t total(const struct tm& told) {
    return static_cast<int32_t>(told.tm_gmtoff) * milliseconds;
  }
  static struct tm told_at(UDate date) {
    struct tm told = {};
    const auto second = static_cast<time_t>(std::floor(date / milliseconds));
    KP_localtime_r(&second, &told);
    return told;
  }
};

// Whether both zones tell the same times, in summer and in winter.
static bool agree(const icu::TimeZone& a, const icu::TimeZone& b) {
  const UDate now = icu::Calendar::getNow();
  constexpr double days[] = {0, 91, 182, 273};
  for (const double day : days) {
    UErrorCode status = U_ZERO_ERROR;
    std::array<int32_t, 4> offsets = {};
    a.getOffset(now + day * 24 * one_hour, 0, offsets[0], offsets[1], status);
    b.getOffset(now + day * 24 * one_hour, 0, offsets[2], offsets[3], status);
    if (U_FAILURE(status) || offsets[0] != offsets[2] || offsets[1] != offsets[3]) return false;
  }
  return true;
}

// The ID is that by which ICU knows the names of the zone, if it is one that it knows.
void use_zone_of_c_library() {
  tzset();
  auto zone = std::make_unique<c_library_zone>(icu::UnicodeString("localtime"));
  const std::unique_ptr<icu::TimeZone> known(icu::TimeZone::detectHostTimeZone());
  icu::UnicodeString id;
  if (known != nullptr && agree(*known, *zone)) zone->setID(known->getID(id));
  icu::TimeZone::adoptDefault(zone.release());
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): it is ICU's now
