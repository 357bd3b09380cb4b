#include "kp_LOG_EntryFilter.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_LogEntry.h"
#include "kp_LOG_errors.h"
#include "logging/log_util_raise.h"
#include "logging/logcfg_file.h"
#include "logging/logentry_i.h"

// The property of entries that are meant for debugging.
static constexpr unsigned debug_property = 0x04000000;

void _kp_LOG_entry_filter::set_filter_log_level(unsigned int low, unsigned int high) {
  if (low > LOG_LEVEL_HIGH || high > LOG_LEVEL_HIGH)
    kp_log_raise<KPX_logging_invalid_log_level>(
        "_kp_LOG_entry_filter::set_filter_log_level():  illegal log level specified.");
  low_log_level_ = low;
  high_log_level_ = high;
}

static bool is_debug_enabled(const char* section) {
  const _kp_LOG_configuration* const source = kp_LOG_LogConfig::_get_configuration_ptr();
  unsigned enabled = 0;
  return source != nullptr && source->get_integer_value(section, "DebugEnabled", enabled) &&
         enabled != 0;
}

bool _kp_LOG_entry_filter::check_entry(const kp_LOG_LogEntry& entry) const {
  const _kp_LOG_log_entry_imp& imp = entry._get_imp();
  debug_entry_ = (imp.get_property_mask() & debug_property) != 0;
  debug_enabled_ = is_debug_enabled(section_);
  return _check_entry_by_callback(entry) && _check_entry_by_log_level(imp) &&
         _check_entry_by_property_mask(imp);
}

bool _kp_LOG_entry_filter::_check_entry_by_callback(const kp_LOG_LogEntry& entry) const {
  if (passes_as_debug_entry() || callback_ == nullptr) return true;
  const _kp_LOG_log_entry_imp& imp = entry._get_imp();
  return callback_(imp.get_entry_id(), imp.get_property_mask(), imp.get_log_level(), entry,
                   user_data_);
}

// Each test asks for the source anew: the callback, which runs before, may replace it.
bool _kp_LOG_entry_filter::_check_entry_by_log_level(const _kp_LOG_log_entry_imp& entry) const {
  unsigned low = low_log_level_;
  unsigned high = high_log_level_;
  if (const _kp_LOG_configuration* const source = kp_LOG_LogConfig::_get_configuration_ptr()) {
    source->get_integer_value(section_, "LogLevelLow", low);
    source->get_integer_value(section_, "LogLevelHigh", high);
    if (debug_entry_) {
      source->get_integer_value(section_, "DebugLogLevelLow", low);
      source->get_integer_value(section_, "DebugLogLevelHigh", high);
    }
  }
  return low <= entry.get_log_level() && entry.get_log_level() <= high;
}

bool _kp_LOG_entry_filter::_check_entry_by_property_mask(const _kp_LOG_log_entry_imp& entry) const {
  unsigned mask = property_mask_;
  if (const _kp_LOG_configuration* const source = kp_LOG_LogConfig::_get_configuration_ptr()) {
    if (passes_as_debug_entry()) return true;
    source->get_integer_value(section_, "PropertyMask", mask);
  }
  return (entry.get_property_mask() & mask) != 0;
}
