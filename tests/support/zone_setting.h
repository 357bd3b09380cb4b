// The zone of the process.
#ifndef TESTS_SUPPORT_ZONE_SETTING_H
#define TESTS_SUPPORT_ZONE_SETTING_H

#include <cstdlib>
#include <ctime>
#include <string>

// While it lives, this is the zone of the process.
class zone_setting {
 public:
  explicit zone_setting(const char* zone) {
    if (const char* const before = std::getenv("TZ")) before_ = before;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~zone_setting() {
    if (before_.empty())
      unsetenv("TZ");
    else
      setenv("TZ", before_.c_str(), 1);
    tzset();
  }
  zone_setting(const zone_setting&) = delete;
  zone_setting& operator=(const zone_setting&) = delete;

 private:
  std::string before_;
};

#endif
