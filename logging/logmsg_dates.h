// Dates and times in messages, remembered for as long as they read the same.
#ifndef KP_LOG_LOGMSG_DATES_H
#define KP_LOG_LOGMSG_DATES_H

#include <sys/stat.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "base/kp_time.h"
#include "logging/logmsg_placeholder.h"

// A time as a clock of the machine shows it.
struct logmsg_clock {
  explicit logmsg_clock(const kp_Time& time) noexcept
      : date(packed(time.get_year(), time.get_month(), time.get_day())),
        time_of_day(packed(time.get_hour(), time.get_minute(), time.get_second())) {}
  logmsg_clock() = default;

  // The instant at which the C library's zone of now shows it, as ICU counts.
  double milliseconds() const noexcept;
  bool operator==(const logmsg_clock& other) const = default;

  // The fields of a kp_Time, 16 bits each.
  uint64_t date;
  uint64_t time_of_day;

 private:
  static constexpr uint64_t packed(uint64_t high, uint64_t middle, uint64_t low) noexcept {
    return high << 32U | middle << 16U | low;
  }
};

// How a date or time is to be shown. Locales and code pages are told apart by their addresses, as
// current locales and kept texts have one for each.
struct logmsg_date_style {
  logmsg_kind kind = logmsg_kind::nothing;
  const icu::Locale* locale = nullptr;
  const char* page = nullptr;
  bool operator==(const logmsg_date_style& other) const = default;
};

// The C library's zone, in which times are told: that of TZ, or the system's where TZ is not set.
class logmsg_told_zone {
 public:
  // Whether the zone is still the one that was taken.
  bool is_current() const noexcept;
  // False when its name is too long to be remembered.
  bool take() noexcept;

 private:
  bool has_name_ = false;
  bool has_file_ = false;
  char name_[64] = {};     // the value of TZ
  struct stat file_ = {};  // the system's zone
};

// The zones that the text of a time depends on: the one in which it is told, and ICU's default, in
// which it is shown.
class logmsg_zones {
 public:
  // Looks whether they are still those of the call before. Raises KPX_memory_alloc.
  void follow();
  // Another number whenever they changed; 0 when they may change unseen, as zones of the program's
  // own make may.
  uint64_t identity() const noexcept { return identity_; }
  const icu::TimeZone& shown() const noexcept { return *shown_; }

 private:
  logmsg_told_zone told_;
  std::unique_ptr<icu::TimeZone> shown_;
  bool is_shown_known_ = false;
  uint64_t identity_ = 0;
  uint64_t last_identity_ = 0;
};

// What a thread remembers.
class logmsg_dates {
 public:
  static logmsg_dates& current();

  // To be called before the first date or time of each message. Raises KPX_memory_alloc.
  void follow_zones() { zones_.follow(); }
  // What ICU shows, in the style's code page; null when it shows nothing, or nothing that can be
  // converted. Valid until the next call. Raises KPX_memory_alloc.
  std::string_view shown(const logmsg_date_style& style, const logmsg_clock& clock) {
    for (const slot& kept : slots_)
      if (kept.style == style && kept.clock == clock && kept.zones == zones_.identity())
        return kept.bytes;
    return shown_anew(style, clock);
  }

 private:
  struct slot {
    logmsg_date_style style;
    logmsg_clock clock{};
    uint64_t zones = UINT64_MAX;  // their identity
    double from = 0.0;            // the instants at which it reads the same
    double until = 0.0;           //
    std::string bytes;
  };

  std::string_view shown_anew(const logmsg_date_style& style, const logmsg_clock& clock);
  slot& slot_for(const logmsg_date_style& style) noexcept;

  logmsg_zones zones_;
  std::array<slot, 6> slots_;
  size_t next_ = 0;  // the slot that was filled longest ago
};

#endif
