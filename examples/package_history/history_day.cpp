#include "history_day.h"

history_day history_day_of(const kp_Time& time) {
  return {time.get_year(), time.get_month(), time.get_day()};
}

std::string to_text(const history_day& day) {
  char text[16];
  kp_Time(day.year, day.month, day.day, 0, 0, 0).print_date_out(text, sizeof text);
  return text;
}
