#include "history_day.h"

#include <cstdio>

history_day history_day_of(const kp_Time& time) {
  return {time.get_year(), time.get_month(), time.get_day()};
}

std::string to_text(const history_day& day) {
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d", day.year, day.month, day.day);
  return text;
}
