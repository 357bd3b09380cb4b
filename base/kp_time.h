// kp_Time: a date and time of day to the second, with the zone it is told in.
#ifndef KP_TIME_H
#define KP_TIME_H

#include <chrono>
#include <cstddef>
#include <cstring>

#include "base/kp_export.h"

// A calendar date and time of day, the mode it is told in (GMT or local time), and the zone that
// leads from one to the other: a bias in minutes and a daylight flag.
//     GMT = local + bias - (daylight ? 60 : 0) minutes
// A plain value: copies are independent; one object is used by one thread at a time.
class KP_API kp_Time {
 public:
  // The current time in local mode, with the bias and daylight flag that the C library's zone has
  // at that moment. A change by setenv("TZ") and tzset() counts at once; in a process of several
  // threads, between two zones that share standard offset, names and daylight time, from the next
  // second on.
  kp_Time();
  // The given moment, told in GMT or local time, with the bias and flag that the system's zone has
  // at that moment. Fields are taken as given; month and day count from 1.
  kp_Time(int year, int month, int day, int hour, int minute, int second, bool gmt = false);

  // That moment, without its fraction of a second, told in local time with the bias and flag that
  // the C library's zone has then.
  explicit kp_Time(std::chrono::system_clock::time_point moment);
  // The moment that many seconds after 1970-01-01 00:00:00 GMT, told in GMT, with bias and daylight
  // flag 0. The system's zone is not asked.
  static kp_Time in_GMT(long long seconds);
  // The instant, whatever mode it is told in. One that a time_point does not reach (in Linux before
  // 1677 and after 2262) gives the nearest that it does.
  std::chrono::system_clock::time_point to_time_point() const;

  bool is_GMT_time_mode() const { return gmt_; }
  // Says in which mode the fields are told; converts nothing.
  void set_GMT_time_mode(bool gmt) { gmt_ = gmt; }
  // Convert in place; nothing happens when the time is already told in that mode.
  void local_to_GMT();
  void GMT_to_local();

  short get_zone_bias() const { return zone_bias_; }  // minutes, GMT minus standard local time
  void set_zone_bias(short minutes) { zone_bias_ = minutes; }
  short get_daylight_flag() const { return daylight_flag_; }  // not 0: one hour ahead
  void set_daylight_flag(short flag) { daylight_flag_ = flag; }

  // 1970-01-01 00:00:00 GMT, bias and daylight flag 0.
  void set_zero();

  unsigned short get_year() const { return year_; }
  unsigned short get_month() const { return month_; }  // 1 to 12
  unsigned short get_day() const { return day_; }      // 1 to 31
  unsigned short get_hour() const { return hour_; }
  unsigned short get_minute() const { return minute_; }
  unsigned short get_second() const { return second_; }

  // Whether both are told with the same fields, in the same mode and zone.
  bool is_told_as(const kp_Time& other) const noexcept {
    constexpr std::size_t told = 8 * sizeof(short) + sizeof(bool);
    static_assert(sizeof(kp_Time) - told < sizeof(short),
                  "all but the room behind the last member");
    return std::memcmp(this, &other, told) == 0;
  }

  // Compares the instants: negative when this one is earlier, 0 when equal, positive when later.
  int compare_time(const kp_Time& other) const;

  // Print into `size` bytes, never more, always terminated when `size` is not 0:
  //   print_out       "2026-11-15T17:02:56+08:00", in GMT mode "2026-11-15T09:02:56Z"
  //   print_date_out  "2026-11-15"
  //   print_time_out  "17:02:56"
  void print_out(char* buffer, unsigned size) const;
  void print_date_out(char* buffer, unsigned size) const;
  void print_time_out(char* buffer, unsigned size) const;

  // Reads what print_out writes, also without the zone (then the system's zone at that moment), a
  // date alone (midnight, local), and a blank in place of the T. Anything else, null included,
  // gives false and leaves the time unchanged.
  bool set_to_string_value(const char* text);

 private:
  long long instant() const;                    // since 1970-01-01 00:00:00 GMT
  long long seconds_as_told() const;            // since 1970-01-01 00:00:00, in the time's own mode
  void set_seconds_as_told(long long seconds);  // the inverse
  int offset_minutes() const;                   // local minus GMT
  struct not_told {};
  explicit kp_Time(not_told) {}  // to be told
  void take_system_zone();       // bias and flag of the moment the fields tell
  void tell(long long instant, short bias, short flag);  // in local mode
  void tell_and_remember(long long now);                 // the current second, likewise

  unsigned short year_;
  unsigned short month_;
  unsigned short day_;
  unsigned short hour_;
  unsigned short minute_;
  unsigned short second_;
  short zone_bias_;
  short daylight_flag_;
  bool gmt_;
};

#endif
