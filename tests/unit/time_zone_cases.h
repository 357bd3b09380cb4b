// Moments in zones of all kinds, in local time and in GMT, as kp_Time prints them.
#ifndef TESTS_UNIT_TIME_ZONE_CASES_H
#define TESTS_UNIT_TIME_ZONE_CASES_H

struct zone_case {
  const char* zone;
  int month;  // of 2026, on the 15th at noon local time
  int bias;
  int daylight;
  const char* local;
  const char* gmt;
};

inline constexpr zone_case zone_cases[] = {
    {"UTC", 7, 0, 0, "2026-07-15T12:00:00+00:00", "2026-07-15T12:00:00Z"},
    {"Asia/Shanghai", 7, -480, 0, "2026-07-15T12:00:00+08:00", "2026-07-15T04:00:00Z"},
    {"Europe/Berlin", 7, -60, 1, "2026-07-15T12:00:00+02:00", "2026-07-15T10:00:00Z"},
    {"Europe/Berlin", 1, -60, 0, "2026-01-15T12:00:00+01:00", "2026-01-15T11:00:00Z"},
    {"America/St_Johns", 7, 210, 1, "2026-07-15T12:00:00-02:30", "2026-07-15T14:30:00Z"},
    {"America/St_Johns", 1, 210, 0, "2026-01-15T12:00:00-03:30", "2026-01-15T15:30:00Z"},
    {"Australia/Lord_Howe", 1, -600, 1, "2026-01-15T12:00:00+11:00", "2026-01-15T01:00:00Z"},
    {"Australia/Lord_Howe", 7, -630, 0, "2026-07-15T12:00:00+10:30", "2026-07-15T01:30:00Z"},
};

#endif
