// Times as records and logs have them: "2026-11-15T17:02:56+08:00".
#ifndef RECORDING_RECORDS_TIME_TEXT_H
#define RECORDING_RECORDS_TIME_TEXT_H

#include <array>
#include <string>
#include <string_view>

#include "base/kp_time.h"

// The texts of times, of which many have the minute in common.
class record_time_text {
 public:
  std::string_view of(const kp_Time& time) {
    if (!is_minute_of(time)) print(time);
    text_[second_at_] = static_cast<char>('0' + time.get_second() / 10 % 10);
    text_[second_at_ + 1] = static_cast<char>('0' + time.get_second() % 10);
    return text_;
  }

 private:
  bool is_minute_of(const kp_Time& time) const {
    return time.get_minute() == printed_.get_minute() && time.get_hour() == printed_.get_hour() &&
           time.get_day() == printed_.get_day() && time.get_month() == printed_.get_month() &&
           time.get_year() == printed_.get_year() &&
           time.get_zone_bias() == printed_.get_zone_bias() &&
           time.get_daylight_flag() == printed_.get_daylight_flag() &&
           time.is_GMT_time_mode() == printed_.is_GMT_time_mode() && !text_.empty();
  }
  void print(const kp_Time& time) {
    std::array<char, 64> text;
    time.print_out(text.data(), static_cast<unsigned>(text.size()));
    text_ = text.data();
    second_at_ = text_.find('T') + 7;
    printed_ = time;
  }

  kp_Time printed_;
  std::string text_;
  size_t second_at_ = 0;
};

#endif
