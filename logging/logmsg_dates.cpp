#include "logging/logmsg_dates.h"

#include <unicode/basictz.h>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>
#include <unicode/tztrans.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <vector>

#include "base/kp_clib.h"
#include "logging/icu_text.h"
#include "logging/log_util_per_thread.h"
#include "logging/logmsg_icu_formats.h"
#include "logging/raise.h"

// --- Times as they are told ---

double logmsg_clock::milliseconds() const noexcept {
  const auto field = [](uint64_t fields, unsigned index) {
    return static_cast<int>(fields >> 16 * index & 0xffffU);
  };
  std::tm told{};
  told.tm_year = field(date, 2) - 1900;
  told.tm_mon = field(date, 1) - 1;
  told.tm_mday = field(date, 0);
  told.tm_hour = field(time_of_day, 2);
  told.tm_min = field(time_of_day, 1);
  told.tm_sec = field(time_of_day, 0);
  told.tm_isdst = -1;
  return static_cast<double>(KP_mktime(&told)) * 1000.0;
}

// --- The zones ---

// The file that the C library takes its zone from while TZ is not set. It looks at it for each
// conversion, so that replacing it counts at once.
static struct stat system_zone_file() noexcept {
  struct stat status = {};
  if (KP_stat("/etc/localtime", &status) != 0) status = {};
  return status;
}

static bool is_same_file(const struct stat& a, const struct stat& b) noexcept {
  return a.st_ino == b.st_ino && a.st_dev == b.st_dev && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
         a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

bool logmsg_told_zone::is_current() const noexcept {
  const char* const name = KP_getenv("TZ");
  if (name != nullptr) return has_name_ && std::strcmp(name, name_) == 0;
  return has_file_ && is_same_file(system_zone_file(), file_);
}

bool logmsg_told_zone::take() noexcept {
  const char* const name = KP_getenv("TZ");
  has_file_ = name == nullptr;
  if (has_file_) file_ = system_zone_file();
  has_name_ = name != nullptr && std::strlen(name) < sizeof name_;
  if (has_name_) std::memcpy(name_, name, std::strlen(name) + 1);
  return has_file_ || has_name_;
}

// Whether the zone is one that ICU makes, and not one that follows the program's own rules.
static bool is_made_by_icu(const icu::TimeZone& zone) {
  icu::UnicodeString id;
  const std::unique_ptr<icu::TimeZone> made(icu::TimeZone::createTimeZone(zone.getID(id)));
  return made && *made == zone;
}

// The same, made out once for all threads.
static bool is_known_zone(const icu::TimeZone& zone) {
  struct answer {
    std::mutex lock;                      // a leaf
    std::unique_ptr<icu::TimeZone> zone;  // known; null at first
  };
  static answer& last = *new answer;  // to the end of the process
  const std::lock_guard<std::mutex> hold(last.lock);
  if (last.zone && *last.zone == zone) return true;
  if (!is_made_by_icu(zone)) return false;
  last.zone.reset(zone.clone());
  return true;
}

void logmsg_zones::follow() {
  std::unique_ptr<icu::TimeZone> now(icu::TimeZone::createDefault());
  if (!now) kp_log_raise_alloc();
  const bool is_same = shown_ && *shown_ == *now;
  if (is_same && told_.is_current()) return;
  if (!is_same) is_shown_known_ = kp_log_no_bad_alloc([&] { return is_known_zone(*now); });
  shown_ = std::move(now);
  const bool is_known = told_.take() && is_shown_known_;
  identity_ = is_known ? ++last_identity_ : 0;
}

// --- Texts ---

// A text, and the instants at which it stands for the time: from the first on, and before the
// second.
struct logmsg_dated_text {
  icu::UnicodeString units;
  double from = 0.0;
  double until = 0.0;

  bool stands_for(double instant) const noexcept { return from <= instant && instant < until; }
};

// Whether a text in that pattern changes at midnight, or with the zone's offset, alone.
static bool changes_by_the_day(const icu::UnicodeString& pattern) {
  static const icu::UnicodeString letters_of_days(u"GyYuUrQqMLwWdDFgEec");
  bool is_quoted = false;
  for (int i = 0; i < pattern.length(); ++i) {
    const char16_t unit = pattern[i];
    if (unit == u'\'') is_quoted = !is_quoted;
    const bool is_letter = (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z');
    if (is_letter && !is_quoted && letters_of_days.indexOf(unit) < 0) return false;
  }
  return true;
}

// The milliseconds that the zone's clocks are ahead at the instant; NaN when ICU cannot tell.
static double offset_at(const icu::TimeZone& zone, double instant) {
  int raw = 0;
  int saved = 0;
  UErrorCode status = U_ZERO_ERROR;
  zone.getOffset(instant, 0, raw, saved, status);
  return U_SUCCESS(status) ? raw + saved : std::nan("");
}

// Widens the instants from one to the day around it, as far as the zone's offset stays. Where ICU
// has no memory it finds no change: the offsets at both ends tell whether there is one.
static void widen_to_day(const icu::BasicTimeZone& zone, logmsg_dated_text& text) {
  constexpr double day = 86400000.0;
  const double instant = text.from;
  const double offset = offset_at(zone, instant);
  double from = std::floor((instant + offset) / day) * day - offset;
  double until = from + day;
  icu::TimeZoneTransition change;
  if (zone.getPreviousTransition(instant, 1, change) != 0) from = std::max(from, change.getTime());
  if (zone.getNextTransition(instant, 0, change) != 0) until = std::min(until, change.getTime());
  if (offset_at(zone, from) != offset || offset_at(zone, until - 1.0) != offset) return;
  text.from = from;
  text.until = until;
}

// There are calendars that look at the hour to tell the day. The Gregorian one does not, nor do
// those that differ from it in years and eras.
static void widen(const icu::DateFormat& format, logmsg_dated_text& text) {
  const auto* by_pattern = dynamic_cast<const icu::SimpleDateFormat*>(&format);
  const auto* calendar = dynamic_cast<const icu::GregorianCalendar*>(format.getCalendar());
  const auto* zone = dynamic_cast<const icu::BasicTimeZone*>(&format.getTimeZone());
  if (by_pattern == nullptr || calendar == nullptr || zone == nullptr) return;
  icu::UnicodeString pattern;
  if (changes_by_the_day(by_pattern->toPattern(pattern))) widen_to_day(*zone, text);
}

// At that instant alone; empty when ICU shows nothing.
static logmsg_dated_text text_at(const icu::DateFormat& format, double instant) {
  logmsg_dated_text text;
  UErrorCode status = U_ZERO_ERROR;
  format.format(instant, text.units, nullptr, status);
  if (status == U_MEMORY_ALLOCATION_ERROR || text.units.isBogus()) kp_log_raise_alloc();
  if (U_FAILURE(status)) text.units.remove();
  text.from = instant;
  text.until = instant + 1.0;
  return text;
}

// --- The formatters of the process ---

static bool locale_names_a_zone(const icu::Locale& locale) {
  char zone[8];
  UErrorCode status = U_ZERO_ERROR;
  return locale.getKeywordValue("timezone", zone, sizeof zone, status) > 0;
}

// Threads that need a text at the same time mostly need the same one, and wait until it is made.
class logmsg_shared_dates {
 public:
  static logmsg_shared_dates& of_process() {
    static logmsg_shared_dates& all = *new logmsg_shared_dates;  // to the end of the process
    return all;
  }

  // Empty when ICU shows nothing.
  logmsg_dated_text find(const logmsg_date_style& style, const icu::TimeZone& zone,
                         double instant) {
    const std::lock_guard<std::mutex> hold(lock_);
    row& found = row_for(style.kind, *style.locale);
    if (found.format == nullptr) return {};
    use_zone(found, zone);
    if (!found.text.stands_for(instant)) {
      found.text = {};
      found.text = text_at(*found.format, instant);
      widen(*found.format, found.text);
    }
    return found.text;
  }

 private:
  struct row {
    logmsg_kind kind = logmsg_kind::nothing;
    icu::Locale locale;
    bool has_own_zone = false;
    std::unique_ptr<icu::DateFormat> format;  // null when ICU makes none
    logmsg_dated_text text;
  };

  row& row_for(logmsg_kind kind, const icu::Locale& locale) {
    for (row& known : rows_)
      if (known.kind == kind && known.locale == locale) return known;
    std::unique_ptr<icu::Format> made = logmsg_make_icu_format(kind, locale);
    row& victim = rows_[next_++ % rows_.size()];
    victim = row();
    victim.locale = locale;
    if (victim.locale.isBogus()) kp_log_raise_alloc();
    victim.kind = kind;
    victim.has_own_zone = locale_names_a_zone(locale);
    if (dynamic_cast<const icu::DateFormat*>(made.get()) != nullptr)
      victim.format.reset(static_cast<icu::DateFormat*>(made.release()));
    return victim;
  }

  static void use_zone(row& shown, const icu::TimeZone& zone) {
    if (shown.has_own_zone || shown.format->getTimeZone() == zone) return;
    shown.text = {};
    shown.format->setTimeZone(zone);
    if (shown.format->getTimeZone() != zone) kp_log_raise_alloc();
  }

  std::mutex lock_;  // a leaf
  std::array<row, 16> rows_;
  size_t next_ = 0;  // the row that was filled longest ago
};

// --- What a thread remembers ---

logmsg_dates& logmsg_dates::current() {
  return kp_per_thread<logmsg_dates>::get();
}

// By the thread's own formatter, in the zone that is ICU's default by now.
static logmsg_dated_text text_of_own_formatter(const logmsg_date_style& style, double instant) {
  const icu::DateFormat* const format = logmsg_icu_formats::in(*style.locale).date(style.kind);
  logmsg_dated_text text;
  if (format != nullptr) text = text_at(*format, instant);
  return text;
}

logmsg_dates::slot& logmsg_dates::slot_for(const logmsg_date_style& style) noexcept {
  for (slot& kept : slots_)
    if (kept.style == style) return kept;
  return slots_[next_++ % slots_.size()];
}

std::string_view logmsg_dates::shown_anew(const logmsg_date_style& style,
                                          const logmsg_clock& clock) {
  return kp_log_no_bad_alloc([&]() -> std::string_view {
    const bool is_remembered = zones_.identity() != 0;
    const double instant = clock.milliseconds();
    slot& kept = slot_for(style);
    if (is_remembered && kept.zones == zones_.identity() && kept.style == style &&
        kept.from <= instant && instant < kept.until) {
      kept.clock = clock;
      return kept.bytes;
    }
    kept.zones = UINT64_MAX;
    const logmsg_dated_text text =
        is_remembered ? logmsg_shared_dates::of_process().find(style, zones_.shown(), instant)
                      : text_of_own_formatter(style, instant);
    if (text.units.isEmpty() ||
        icu_text_encode(text.units, style.page, kept.bytes) != icu_text_result::ok)
      return {};
    kept.style = style;
    kept.clock = clock;
    kept.from = text.from;
    kept.until = text.until;
    if (is_remembered) kept.zones = zones_.identity();
    return kept.bytes;
  });
}
