// Dates and times that are remembered, beside those that ICU's message format shows each time.
#include "logging/logmsg_dates.h"

#include <gtest/gtest.h>
#include <unicode/msgfmt.h>
#include <unicode/simpletz.h>

#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "logging/icu_text.h"
#include "logging/logmsg_icu_pattern.h"
#include "tests/support/failing.h"
#include "tests/support/icu_setting.h"
#include "tests/support/temp_folder.h"

static constexpr logmsg_kind date_kinds[] = {logmsg_kind::date, logmsg_kind::time};

// What a message pattern that is nothing but the date or time shows, in the zones of now.
static std::string shown_by_icu(const logmsg_date_style& style, const logmsg_clock& clock) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::MessageFormat format(icu::UnicodeString(logmsg_pattern_of(style.kind)), *style.locale,
                                  status);
  const icu::Formattable value(clock.milliseconds(), icu::Formattable::kIsDate);
  icu::FieldPosition field(icu::FieldPosition::DONT_CARE);
  icu::UnicodeString text;
  format.format(&value, 1, text, field, status);
  EXPECT_TRUE(U_SUCCESS(status)) << u_errorName(status);
  std::string bytes;
  EXPECT_EQ(icu_text_encode(text, style.page, bytes), icu_text_result::ok);
  return bytes;
}

static logmsg_date_style style_of(logmsg_kind kind, const char* page = "UTF-8") {
  return {kind, &icu::Locale::getDefault(), page};
}

// As in a message of its own.
static std::string shown(const logmsg_date_style& style, const logmsg_clock& clock) {
  logmsg_dates& dates = logmsg_dates::current();
  dates.follow_zones();
  return std::string(dates.shown(style, clock));
}

static logmsg_clock clock_at(long long seconds) {
  const std::chrono::system_clock::time_point moment{std::chrono::seconds(seconds)};
  kp_Time time(moment);
  return logmsg_clock(time);
}

static void expect_as_icu_shows(const logmsg_clock& clock, const std::string& where) {
  for (const logmsg_kind kind : date_kinds) {
    const logmsg_date_style style = style_of(kind);
    ASSERT_EQ(shown(style, clock), shown_by_icu(style, clock)) << where;
  }
}

// --- Random times ---

class random_times {
 public:
  explicit random_times(unsigned seed) : random_(seed) {}

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  // Seconds in which the texts of the one before may still stand, or just not any more.
  long long next() {
    static const long long steps[] = {0, 1, 59, 60, 3599, 3600, -1, -600, 43200, 5400, 1800, 86400};
    if (below(12) == 0)
      last_ = static_cast<long long>(random_() % 6300000000) - 2200000000;  // 1900 to 2099
    else
      last_ += steps[below(std::size(steps))];
    return last_;
  }

 private:
  std::mt19937_64 random_;
  long long last_ = 1780000000;
};

static std::vector<std::string> zones_of_icu() {
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::StringEnumeration> all(icu::TimeZone::createTimeZoneIDEnumeration(
      UCAL_ZONE_TYPE_CANONICAL, nullptr, nullptr, status));
  std::vector<std::string> zones;
  while (const char* zone = all->next(nullptr, status)) zones.emplace_back(zone);
  return zones;
}

static const char* const date_locales[] = {"en_US",
                                           "de_DE",
                                           "ja_JP",
                                           "ar_EG",
                                           "fa_IR@calendar=persian",
                                           "th_TH@calendar=buddhist",
                                           "zh_TW",
                                           "ja_JP@calendar=japanese",
                                           "ar_SA@calendar=islamic",
                                           "zh_CN@calendar=chinese",
                                           "am_ET@calendar=ethiopic",
                                           "he_IL@calendar=hebrew",
                                           "hi_IN",
                                           "fr_FR@timezone=America/Sao_Paulo"};

// A part of ICU's zones, so that the parts can be tested at once.
class MessageDatesOfZones : public testing::TestWithParam<size_t> {};

static constexpr size_t zone_shards = 4;

TEST_P(MessageDatesOfZones, AreThoseOfIcu) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  random_times random(seed);
  const environment_value tz("TZ", "UTC");
  const std::vector<std::string> zones = zones_of_icu();
  EXPECT_GT(zones.size(), 400U);
  for (size_t i = GetParam(); i < zones.size(); i += zone_shards) {
    const std::string& zone = zones[i];
    const icu_zone_setting zone_setting(zone.c_str());
    const icu_locale_setting locale(date_locales[random.below(std::size(date_locales))]);
    for (int j = 0; j < 12; ++j) {
      expect_as_icu_shows(clock_at(random.next()),
                          zone + " " + icu::Locale::getDefault().getName());
      ASSERT_FALSE(HasFailure());
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Parts, MessageDatesOfZones, testing::Range(size_t{0}, zone_shards));

TEST(MessageDates, OnTheDayOfAChangeAreThoseOfIcu) {
  const environment_value tz("TZ", "UTC");
  const icu_locale_setting locale("de_DE");
  const struct {
    const char* zone;
    long long change;
  } changes[] = {{"Europe/Berlin", 1774746000},        // forwards at 02:00
                 {"America/Sao_Paulo", 1541300400},    // forwards at midnight
                 {"America/Sao_Paulo", 1550368800},    // backwards to the day before
                 {"Pacific/Apia", 1325239200},         // a day is left out
                 {"Australia/Lord_Howe", 1775314800},  // by half an hour
                 {"America/Juneau", -3225223727}};     // a day comes twice
  for (const auto& [zone, change] : changes) {
    const icu_zone_setting setting(zone);
    for (long long second = change - 90000; second < change + 90000; second += 1201)
      expect_as_icu_shows(clock_at(second), zone);
  }
}

// The C library reads the time in its own zone, which need not be ICU's.
TEST(MessageDates, AreToldInTheZoneOfTheCLibrary) {
  const icu_locale_setting locale("en_GB");
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  random_times random(seed);
  const icu_zone_setting zone("Asia/Tokyo");
  for (int i = 0; i < 60; ++i) {
    static const char* const told[] = {"UTC",          "Asia/Tokyo", "Asia/Kolkata",
                                       "<+0330>-3:30", "MST7",       ""};
    const environment_value tz("TZ", told[random.below(std::size(told))]);
    for (int j = 0; j < 6; ++j) expect_as_icu_shows(clock_at(random.next()), std::getenv("TZ"));
  }
}

// --- Zones that change ---

static const logmsg_clock summer_evening(kp_Time(2026, 7, 15, 23, 30, 0));

TEST(MessageDates, FollowIcusZoneAtOnce) {
  const icu_locale_setting locale("de_DE");
  const environment_value tz("TZ", "UTC");
  for (const char* zone : {"America/New_York", "Asia/Tokyo", "America/New_York", "UTC",
                           "Pacific/Kiritimati", "GMT+3", "Etc/Unknown", "Asia/Tokyo"}) {
    const icu_zone_setting setting(zone);
    expect_as_icu_shows(summer_evening, zone);
    expect_as_icu_shows(summer_evening, zone);
  }
}

TEST(MessageDates, FollowAZoneOfTheSameNameWithOtherRules) {
  const icu_locale_setting locale("de_DE");
  const environment_value tz("TZ", "UTC");
  for (const int hours : {1, 5, -3}) {
    const icu_zone_setting before("UTC");
    icu::TimeZone::adoptDefault(new icu::SimpleTimeZone(hours * 3600000, "Europe/Berlin"));
    expect_as_icu_shows(summer_evening, std::to_string(hours));
    expect_as_icu_shows(summer_evening, std::to_string(hours));
  }
}

// The C library looks at TZ for each conversion, whether somebody called tzset() or not.
TEST(MessageDates, FollowTzAtOnce) {
  const icu_locale_setting locale("de_DE");
  const icu_zone_setting zone("UTC");
  const environment_value before("TZ", "UTC");
  for (const char* name :
       {"Europe/Berlin", "Europe/Paris", "Asia/Tokyo", "UTC", "XYZ3", "Europe/Berlin"}) {
    setenv("TZ", name, 1);
    expect_as_icu_shows(summer_evening, name);
    expect_as_icu_shows(summer_evening, name);
  }
  unsetenv("TZ");
  expect_as_icu_shows(summer_evening, "unset");
  expect_as_icu_shows(summer_evening, "unset");
  static char variable[] = "TZ=ABC1";
  putenv(variable);
  for (const char hours : {'1', '7', '9'}) {
    variable[6] = hours;
    expect_as_icu_shows(summer_evening, variable);
  }
  unsetenv("TZ");
}

// The C library hands a text out again that it put there before.
TEST(MessageDates, FollowATzThatTakesThePlaceOfAnotherVariable) {
  const icu_locale_setting locale("de_DE");
  const icu_zone_setting zone("UTC");
  const environment_value before("TZ", "UTC");
  const environment_value first("KP_FIRST", "x");
  const environment_value last("KP_LAST", "x");
  unsetenv("TZ");
  expect_as_icu_shows(summer_evening, "before");
  unsetenv("KP_FIRST");
  unsetenv("KP_LAST");
  setenv("TZ", "Asia/Tokyo", 1);
  setenv("KP_LAST", "x", 1);
  tzset();
  expect_as_icu_shows(summer_evening, "behind");
}

TEST(MessageDates, FollowATzThatIsTooLongToBeRemembered) {
  const icu_locale_setting locale("de_DE");
  const icu_zone_setting zone("UTC");
  const std::string name(70, 'A');
  for (const char* hours : {"1", "5"}) {
    const environment_value tz("TZ", (name + hours).c_str());
    expect_as_icu_shows(summer_evening, hours);
  }
}

// A zone of the program's own, which nobody can tell has changed.
class shifting_zone : public icu::SimpleTimeZone {
 public:
  shifting_zone() : SimpleTimeZone(0, "UTC") {}

  using SimpleTimeZone::getOffset;
  void getOffset(UDate, UBool, int32_t& raw, int32_t& saved, UErrorCode&) const override {
    raw = 3600000 * hours;
    saved = 0;
  }
  shifting_zone* clone() const override { return new shifting_zone(*this); }
  UClassID getDynamicClassID() const override {
    static char its_address = 0;
    return &its_address;
  }

  inline static int hours = 0;
};

TEST(MessageDates, FollowAZoneOfTheProgramsOwn) {
  const icu_locale_setting locale("de_DE");
  const environment_value tz("TZ", "UTC");
  const icu_zone_setting before("UTC");
  icu::TimeZone::adoptDefault(new shifting_zone);
  for (shifting_zone::hours = 0; shifting_zone::hours < 4; ++shifting_zone::hours) {
    EXPECT_EQ(shown(style_of(logmsg_kind::time), summer_evening),
              (shifting_zone::hours == 0 ? "23" : "0" + std::to_string(shifting_zone::hours - 1)) +
                  ":30:00");
  }
}

// --- What is remembered ---

class counted_allocations {
 public:
  counted_allocations() : allocations_([this] { return ++count_ == 0; }) {}
  unsigned count() const { return count_; }

 private:
  unsigned count_ = 0;
  const icu_allocations allocations_;
};

static unsigned allocations_to_show(const logmsg_date_style& style, const logmsg_clock& clock) {
  const counted_allocations allocations;
  logmsg_dates::current().shown(style, clock);
  return allocations.count();
}

TEST(MessageDates, TheSameSecondIsRememberedAndADateForItsDay) {
  const icu_locale_setting locale("en_US");
  const environment_value tz("TZ", "Europe/Berlin");
  const icu_zone_setting zone("Europe/Berlin");
  const logmsg_clock early(kp_Time(2026, 7, 15, 0, 0, 0));
  const logmsg_clock late(kp_Time(2026, 7, 15, 23, 59, 59));
  const logmsg_clock tomorrow(kp_Time(2026, 7, 16, 0, 0, 0));
  const logmsg_date_style date = style_of(logmsg_kind::date);
  const logmsg_date_style time = style_of(logmsg_kind::time);
  shown(date, early);
  shown(time, early);
  EXPECT_EQ(allocations_to_show(date, early), 0U);
  EXPECT_EQ(allocations_to_show(time, early), 0U);
  EXPECT_EQ(allocations_to_show(date, late), 0U);
  EXPECT_NE(allocations_to_show(time, late), 0U);
  EXPECT_NE(allocations_to_show(date, tomorrow), 0U);
}

TEST(MessageDates, AnotherThreadNeedsNoFormatterOfItsOwn) {
  const icu_locale_setting locale("en_US");
  const environment_value tz("TZ", "UTC");
  const icu_zone_setting zone("UTC");
  const std::string first = shown(style_of(logmsg_kind::time), summer_evening);
  std::thread([&] {
    const counted_allocations allocations;
    EXPECT_EQ(shown(style_of(logmsg_kind::time), summer_evening), first);
    EXPECT_LT(allocations.count(), 30U);
  }).join();
}

TEST(MessageDates, AreRememberedForEachStyle) {
  const environment_value tz("TZ", "UTC");
  const icu_zone_setting zone("UTC");
  for (int round = 0; round < 3; ++round) {
    for (const char* name : {"fr_FR", "ja_JP", "ar_EG"}) {
      const icu_locale_setting locale(name);
      for (const char* page : {"UTF-8", "ISO-8859-6", "Shift_JIS", "UTF-16BE"}) {
        for (const logmsg_kind kind : date_kinds) {
          const logmsg_date_style style = style_of(kind, page);
          EXPECT_EQ(shown(style, summer_evening), shown_by_icu(style, summer_evening));
        }
      }
    }
  }
}

TEST(MessageDates, ShowNothingInACodePageThatIcuDoesNotKnow) {
  const icu_locale_setting locale("en_US");
  EXPECT_EQ(logmsg_dates::current()
                .shown(style_of(logmsg_kind::date, "no-such-page"), summer_evening)
                .data(),
            nullptr);
}

TEST(MessageDates, RaiseWhatAFailedAllocationIs) {
  const icu_locale_setting locale("dz_BT");  // its times are long
  const environment_value tz("TZ", "UTC");
  const icu_zone_setting zone("UTC");
  const logmsg_date_style style = style_of(logmsg_kind::time);
  const std::string right = shown(style, summer_evening);
  EXPECT_GT(for_each_failing_new([&] {
              logmsg_dates fresh;
              fresh.follow_zones();
              EXPECT_EQ(fresh.shown(style, summer_evening), right);
            }),
            0U);
}
