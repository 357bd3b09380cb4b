#include "bench/peers/map_filter.h"

peer_settings peer_filter_settings() {
  return {{"filter",
           {{"DebugEnabled", 0}, {"LogLevelLow", 4}, {"LogLevelHigh", 9}, {"PropertyMask", 1}}}};
}

static bool find_in(const peer_settings& settings, const char* section, const char* key,
                    unsigned& value) {
  const auto in_section = settings.find(section);
  if (in_section == settings.end()) return false;
  const auto setting = in_section->second.find(key);
  if (setting == in_section->second.end()) return false;
  value = setting->second;
  return true;
}

bool peer_find(const peer_settings& settings, const char* section, const char* key,
               unsigned& value) {
  return find_in(settings, section, key, value) || find_in(settings, "global", key, value);
}

bool peer_check(const peer_settings& settings, const char* section, unsigned level, unsigned mask) {
  unsigned debug = 0;
  unsigned low = 0;
  unsigned high = 9;
  unsigned wanted = 0xFFFFFFFF;
  peer_find(settings, section, "DebugEnabled", debug);
  peer_find(settings, section, "LogLevelLow", low);
  peer_find(settings, section, "LogLevelHigh", high);
  if (level < low || level > high) return false;
  peer_find(settings, section, "PropertyMask", wanted);
  return debug != 0 || (mask & wanted) != 0;
}
