#include "kp_LOG_EntryFilter.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_LogEntry.h"
#include "kp_LOG_errors.h"
#include "logging/logcfg_file.h"
#include "logging/logentry_i.h"
#include "logging/raise.h"

// The property of entries that are meant for debugging.
static constexpr unsigned debug_property = 0x04000000;

void _kp_LOG_entry_filter::set_filter_log_level(unsigned int low, unsigned int high) {
  if (low > LOG_LEVEL_HIGH || high > LOG_LEVEL_HIGH)
    kp_log_raise<KPX_logging_invalid_log_level>(
        "_kp_LOG_entry_filter::set_filter_log_level():  illegal log level specified.");
  low_log_level_ = low;
  high_log_level_ = high;
}

// --- What a configuration source changes ---

// Kept out of line, so that filters without a source get by without their stack frames.
[[gnu::noinline]] static bool is_debug_enabled(const _kp_LOG_configuration& source,
                                               const char* section) {
  unsigned enabled = 0;
  return source.get_integer_value(section, "DebugEnabled", enabled) && enabled != 0;
}

static bool is_level_within(unsigned low, unsigned level, unsigned high) {
  return low <= level && level <= high;
}

[[gnu::noinline]] static bool passes_configured_levels(const _kp_LOG_configuration& source,
                                                       const char* section, bool debug_entry,
                                                       unsigned low, unsigned level,
                                                       unsigned high) {
  source.get_integer_value(section, "LogLevelLow", low);
  source.get_integer_value(section, "LogLevelHigh", high);
  if (debug_entry) {
    source.get_integer_value(section, "DebugLogLevelLow", low);
    source.get_integer_value(section, "DebugLogLevelHigh", high);
  }
  return is_level_within(low, level, high);
}

[[gnu::noinline]] static unsigned configured_mask(const _kp_LOG_configuration& source,
                                                  const char* section, unsigned mask) {
  source.get_integer_value(section, "PropertyMask", mask);
  return mask;
}

// --- Checking ---

inline bool _kp_LOG_entry_filter::passes_level(const _kp_LOG_configuration* source,
                                               const _kp_LOG_log_entry_imp& entry) const {
  const unsigned level = entry.get_log_level();
  if (source == nullptr) return is_level_within(low_log_level_, level, high_log_level_);
  return passes_configured_levels(*source, section_, debug_entry_, low_log_level_, level,
                                  high_log_level_);
}

inline bool _kp_LOG_entry_filter::passes_mask(const _kp_LOG_configuration* source,
                                              const _kp_LOG_log_entry_imp& entry) const {
  const unsigned mask = entry.get_property_mask();
  if (source == nullptr) return (mask & property_mask_) != 0;
  if (passes_as_debug_entry()) return true;
  return (mask & configured_mask(*source, section_, property_mask_)) != 0;
}

bool _kp_LOG_entry_filter::check_entry(const kp_LOG_LogEntry& entry) const {
  const _kp_LOG_log_entry_imp& imp = entry._get_imp();
  const _kp_LOG_configuration* source = kp_LOG_LogConfig::_get_configuration_ptr();
  debug_entry_ = (imp.get_property_mask() & debug_property) != 0;
  debug_enabled_ = source != nullptr && is_debug_enabled(*source, section_);
  if (callback_ != nullptr) {
    if (!_check_entry_by_callback(entry)) return false;
    source = kp_LOG_LogConfig::_get_configuration_ptr();  // the callback may have replaced it
  }
  return passes_level(source, imp) && passes_mask(source, imp);
}

bool _kp_LOG_entry_filter::_check_entry_by_callback(const kp_LOG_LogEntry& entry) const {
  if (passes_as_debug_entry() || callback_ == nullptr) return true;
  const _kp_LOG_log_entry_imp& imp = entry._get_imp();
  return callback_(imp.get_entry_id(), imp.get_property_mask(), imp.get_log_level(), entry,
                   user_data_);
}

bool _kp_LOG_entry_filter::_check_entry_by_log_level(const _kp_LOG_log_entry_imp& entry) const {
  return passes_level(kp_LOG_LogConfig::_get_configuration_ptr(), entry);
}

bool _kp_LOG_entry_filter::_check_entry_by_property_mask(const _kp_LOG_log_entry_imp& entry) const {
  return passes_mask(kp_LOG_LogConfig::_get_configuration_ptr(), entry);
}
