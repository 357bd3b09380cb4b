// _kp_LOG_entry_filter: whether a finished log entry is to be written.
#ifndef KP_LOG_ENTRYFILTER_H
#define KP_LOG_ENTRYFILTER_H

#include "base/kp_export.h"

class _kp_LOG_configuration;
class _kp_LOG_log_entry_imp;
class kp_LOG_LogEntry;

// A range of log levels, a property mask and a caller's own test. Where a configuration source is
// set (kp_LOG_LogConfig::SetConfigurationSource), its values under the filter's section override
// the filter's own at each check, so that filtering changes without changing the program:
//
//   "DebugEnabled"       not 0: debug entries pass the callback and the mask
//   "LogLevelLow"        the lowest level that passes; not range-checked
//   "LogLevelHigh"       the highest level that passes; not range-checked
//   "DebugLogLevelLow"   the same for debug entries, over "LogLevelLow"
//   "DebugLogLevelHigh"  the same for debug entries, over "LogLevelHigh"
//   "PropertyMask"       the mask, except for debug entries that pass by "DebugEnabled"
//
// A debug entry is one whose property mask has bit 26 (0x04000000). A key that is absent leaves the
// filter's own value in force.
//
// One filter is used by one thread at a time, also for checks, which note what they found out about
// the entry in the filter; distinct filters are independent. A check allocates and formats nothing.
class KP_API _kp_LOG_entry_filter {
 public:
  // The caller's own test; true passes the entry. What it raises leaves the check.
  using callback_type = bool (*)(unsigned entry_id, unsigned property_mask, unsigned log_level,
                                 const kp_LOG_LogEntry& entry, void* user_data);

  // Lets everything pass: every level, every property bit, no callback, no section. An entry whose
  // property mask is 0 shares no bit with any mask and is rejected all the same.
  _kp_LOG_entry_filter() noexcept = default;

  // `user_data` is handed to the callback as it is. A null callback removes it.
  void set_callback(callback_type callback, void* user_data) noexcept {
    callback_ = callback;
    user_data_ = user_data;
  }
  // An entry passes when its property mask shares a bit with `mask`; 0 lets none pass.
  void set_property_mask(unsigned mask) noexcept { property_mask_ = mask; }
  // The section that the configuration is asked for. Not copied: `section` must live as long as the
  // filter uses it. Null, as at first, is handed on to the configuration source, which takes it as
  // "".
  void set_section(const char* section) noexcept { section_ = section; }
  // The levels that pass, both included. `low` above `high` is accepted and lets no level pass.
  // Raises KPX_logging_invalid_log_level
  // "_kp_LOG_entry_filter::set_filter_log_level():  illegal log level specified." for a level above
  // 9 and leaves the range as it was.
  void set_filter_log_level(unsigned int low, unsigned int high);

  // True when the entry is to be written: the callback agrees, the level lies within the range, and
  // the masks share a bit, asked in this order and no further than the first refusal. Raises
  // nothing of its own; errors of the callback and of the configuration source pass through.
  bool check_entry(const kp_LOG_LogEntry& entry) const;

  // The three tests of check_entry, callable on their own. The first and the last go by what the
  // last check_entry found out about debugging, the second by whether its entry was a debug entry.
  bool _check_entry_by_callback(const kp_LOG_LogEntry& entry) const;
  bool _check_entry_by_log_level(const _kp_LOG_log_entry_imp& entry) const;
  bool _check_entry_by_property_mask(const _kp_LOG_log_entry_imp& entry) const;

 private:
  bool passes_as_debug_entry() const noexcept { return debug_entry_ && debug_enabled_; }
  bool passes_level(const _kp_LOG_configuration* source, const _kp_LOG_log_entry_imp& entry) const;
  bool passes_mask(const _kp_LOG_configuration* source, const _kp_LOG_log_entry_imp& entry) const;

  callback_type callback_ = nullptr;     // null: none
  void* user_data_ = nullptr;            // for the callback
  unsigned property_mask_ = 0xFFFFFFFF;  // bits of which one must be the entry's
  unsigned low_log_level_ = 0;           // 0 to 9
  unsigned high_log_level_ = 9;          // 0 to 9
  const char* section_ = nullptr;        // the caller's; null: none

  // Of the entry checked last.
  mutable bool debug_enabled_ = false;  // the configuration's "DebugEnabled"
  mutable bool debug_entry_ = false;    // its property mask has the debug bit
};

#endif
