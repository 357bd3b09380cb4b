// Times as records and logs have them: "2026-11-15T17:02:56+08:00".
#ifndef RECORDING_RECORDS_TIME_TEXT_H
#define RECORDING_RECORDS_TIME_TEXT_H

#include <array>
#include <string>
#include <string_view>

#include "base/kp_time.h"

// The texts of times, of which many have the second in common, or the minute.
class record_time_text {
 public:
  std::string_view of(const kp_Time& time) {
    if (text_.empty() || !shown_.is_told_as(time)) show(time);
    return text_;
  }

 private:
  void show(const kp_Time& time) {
    if (!is_in_minute_of(time)) print(time);
    text_[second_at_] = static_cast<char>('0' + time.get_second() / 10 % 10);
    text_[second_at_ + 1] = static_cast<char>('0' + time.get_second() % 10);
    shown_ = time;
  }
  bool is_in_minute_of(const kp_Time& time) const {
    return time.get_minute() == shown_.get_minute() && time.get_hour() == shown_.get_hour() &&
           time.get_day() == shown_.get_day() && time.get_month() == shown_.get_month() &&
           time.get_year() == shown_.get_year() && time.get_zone_bias() == shown_.get_zone_bias() &&
           time.get_daylight_flag() == shown_.get_daylight_flag() &&
           time.is_GMT_time_mode() == shown_.is_GMT_time_mode() && !text_.empty();
  }
  void print(const kp_Time& time) {
    std::array<char, 64> text;
    time.print_out(text.data(), static_cast<unsigned>(text.size()));
    text_ = text.data();
    second_at_ = text_.find('T') + 7;
  }

  kp_Time shown_;
  std::string text_;
  size_t second_at_ = 0;
};

#endif
