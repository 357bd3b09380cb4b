#include "recorder/filter_rule.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/kp_clib.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_Recorder.h"
#include "logging/logentry_i.h"
#include "recording/files/file_error.h"

static constexpr uint32_t all_flags = UINT32_MAX;

filter_rule::filter_rule(std::string settings, std::string section)
    : settings_(std::move(settings)), section_(std::move(section)) {
  filter_.set_filter_log_level(0, LOG_LEVEL_HIGH);
  filter_.set_section(section_.c_str());
}

bool filter_rule::has_changed() const noexcept {
  struct stat now {};
  if (settings_.empty() || KP_stat(settings_.c_str(), &now) != 0) return false;
  return now.st_ino != seen_.st_ino || now.st_dev != seen_.st_dev || now.st_size != seen_.st_size ||
         now.st_mtim.tv_sec != seen_.st_mtim.tv_sec || now.st_mtim.tv_nsec != seen_.st_mtim.tv_nsec;
}

void filter_rule::read() {
  if (settings_.empty()) return;
  if (KP_stat(settings_.c_str(), &seen_) != 0 || KP_access(settings_.c_str(), R_OK) != 0)
    throw file_error(file_use::reading, "read", settings_, errno);
  if (!S_ISREG(seen_.st_mode))
    throw file_error(file_use::reading, "read", settings_, "it is no regular file");
  kp_LOG_LogConfig::SetConfigurationSource(settings_.c_str(), KP_CONFIG_FILE);
}

// The filter is asked, once for each level and flag: what it decides has one home.
uint64_t filter_rule::rule() const {
  uint64_t rule = 0;
  int plain_level = -1;
  int debug_level = -1;
  for (int level = 0; level <= int{LOG_LEVEL_HIGH}; ++level) {
    const auto number = static_cast<unsigned>(level);
    if (filter_.accepts(number, all_flags & ~_kp_LOG_recorder_gate::debug_flag)) {
      rule |= uint64_t{1} << (_kp_LOG_recorder_gate::plain_levels_shift + number);
      plain_level = level;
    }
    if (filter_.accepts(number, all_flags)) {
      rule |= uint64_t{1} << (_kp_LOG_recorder_gate::debug_levels_shift + number);
      debug_level = level;
    }
  }
  if (debug_level >= 0 &&
      filter_.accepts(static_cast<unsigned>(debug_level), _kp_LOG_recorder_gate::debug_flag))
    rule |= _kp_LOG_recorder_gate::passes_debug;
  for (unsigned bit = 0; bit < 32; ++bit) {
    const uint32_t flag = uint32_t{1} << bit;
    const bool passes =
        plain_level >= 0 && flag != _kp_LOG_recorder_gate::debug_flag
            ? filter_.accepts(static_cast<unsigned>(plain_level), flag)
            : debug_level >= 0 && filter_.accepts(static_cast<unsigned>(debug_level),
                                                  flag | _kp_LOG_recorder_gate::debug_flag);
    if (passes) rule |= flag;
  }
  unsigned mask = 0;
  if (settings_.empty() ||
      !kp_LOG_LogConfig::GetConfigurationIntegerValue(section_.c_str(), "PropertyMask", mask))
    rule |= _kp_LOG_recorder_gate::passes_plain;
  return rule;
}
