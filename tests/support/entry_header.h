// What tests of an entry's header and of its timestamp share.
#ifndef TESTS_SUPPORT_ENTRY_HEADER_H
#define TESTS_SUPPORT_ENTRY_HEADER_H

#include <string>
#include <vector>

#include "base/kp_time.h"
#include "tests/support/ldf_bytes.h"

// Entry types of the given IDs, with the built-in fields, under one log version.
inline ldf_file entry_types(const std::vector<unsigned>& ids, const std::string& version = "2.0") {
  ldf_file file{.log_version = version, .globals = ldf_builtin_fields()};
  for (unsigned id : ids) file.entries.push_back({.id = id, .flags = 0x10 + id});
  return file;
}

inline kp_Time shanghai_summer() {
  kp_Time time(2026, 11, 15, 17, 2, 56);
  time.set_zone_bias(-480);
  time.set_daylight_flag(1);
  return time;
}

inline std::string printed(const kp_Time& time) {
  char text[64];
  time.print_out(text, sizeof text);
  return text;
}

inline const char not_initialized[] =
    "_kp_LOG_log_entry_imp::_get_attribute_internal(): entry not initialized";

#endif
