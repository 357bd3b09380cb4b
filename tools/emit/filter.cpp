#include "tools/emit/filter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/kp_clib.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_LogEntry.h"
#include "logging/logentry_i.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"

emit_filter::emit_filter(const filter_settings& settings) : settings_(settings) {
  filter_.set_filter_log_level(settings.min_level, settings.max_level);
  if (settings.mask) filter_.set_property_mask(*settings.mask);
  filter_.set_section(settings.section.c_str());
  reload();
}

// The library takes a source that it cannot read for one without values; who names a file wants to
// know.
static void check_config(const std::string& path) {
  struct stat status {};
  int error = 0;
  if (KP_stat(path.c_str(), &status) != 0 || KP_access(path.c_str(), R_OK) != 0)
    error = errno;
  else if (S_ISDIR(status.st_mode))
    error = EISDIR;
  else if (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode))
    error = ESPIPE;
  if (error != 0) throw file_error(file_use::reading, "read", input_name(path), error);
}

void emit_filter::reload() {
  const std::string& config = settings_.config;
  if (!config.empty()) {
    check_config(config);
    kp_LOG_LogConfig::SetConfigurationSource(config.c_str(), KP_CONFIG_FILE);
  }
  unsigned mask = 0;
  has_mask_ = settings_.mask || kp_LOG_LogConfig::GetConfigurationIntegerValue(
                                    settings_.section.c_str(), "PropertyMask", mask);
}

bool emit_filter::passes(const kp_LOG_LogEntry& entry) const {
  return filter_.check_entry(entry) || (!has_mask_ && passes_without_mask(entry));
}

// The tests in the order of check_entry, which has been asked before.
bool emit_filter::passes_without_mask(const kp_LOG_LogEntry& entry) const {
  return entry.GetPropertyMask() == 0 && filter_._check_entry_by_callback(entry) &&
         filter_._check_entry_by_log_level(entry._get_imp());
}
