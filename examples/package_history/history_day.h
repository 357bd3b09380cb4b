// A day of the calendar, by which logs are named and entries counted.
#ifndef PACKAGE_HISTORY_DAY_H
#define PACKAGE_HISTORY_DAY_H

#include <compare>
#include <string>

#include "base/kp_time.h"

struct history_day {
  int year = 0;
  int month = 0;
  int day = 0;

  auto operator<=>(const history_day&) const = default;
};

// The day on which a time falls, in the mode in which the time is told.
history_day history_day_of(const kp_Time& time);

// "2026-03-02".
std::string to_text(const history_day& day);

#endif
