// _kp_LOG_entry_filter: whether a finished log entry is to be written.
#ifndef KP_LOG_ENTRYFILTER_H
#define KP_LOG_ENTRYFILTER_H

#include <atomic>
#include <cstdint>

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
// Any number of threads may ask one filter at a time; whoever sets something needs it alone. What
// the source holds is remembered in the filter until the source is replaced or read again. A check
// allocates and formats nothing.
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
  void set_property_mask(unsigned mask) noexcept {
    property_mask_ = mask;
    forget();
  }
  // The section that the configuration is asked for. Not copied: `section` must live, and stay as
  // it is, as long as the filter uses it. Null, as at first, is handed on to the configuration
  // source, which takes it as
  // "".
  void set_section(const char* section) noexcept {
    section_ = section;
    forget();
  }
  // The levels that pass, both included. `low` above `high` is accepted and lets no level pass.
  // Raises KPX_logging_invalid_log_level
  // "_kp_LOG_entry_filter::set_filter_log_level():  illegal log level specified." for a level above
  // 9 and leaves the range as it was.
  void set_filter_log_level(unsigned int low, unsigned int high);

  // True when the entry is to be written: the callback agrees, the level lies within the range, and
  // the masks share a bit, asked in this order and no further than the first refusal. Raises
  // nothing of its own; errors of the callback and of the configuration source pass through.
  bool check_entry(const kp_LOG_LogEntry& entry) const;
  // What check_entry would say of an entry of that level and with that property mask if there were
  // no callback: asked before an entry is built, it spares the building of what would be rejected.
  // Any level may be asked for. Leaves nothing behind that the three tests go by. Raises what the
  // configuration source raises.
  bool accepts(unsigned level, unsigned property_mask) const;

  // The three tests of check_entry, callable on their own. The first and the last go by what the
  // last check_entry found out about debugging, the second by whether its entry was a debug entry;
  // where several threads ask, each by one of their checks.
  bool _check_entry_by_callback(const kp_LOG_LogEntry& entry) const;
  bool _check_entry_by_log_level(const _kp_LOG_log_entry_imp& entry) const;
  bool _check_entry_by_property_mask(const _kp_LOG_log_entry_imp& entry) const;

 private:
  // What a check needs of the settings, for levels up to 9, packed into one word.
  using verdicts = uint64_t;

  // What checks leave behind. A copy of a filter remembers nothing of the settings.
  struct memory {
    memory() noexcept = default;
    memory(const memory& other) noexcept : last_check(other.last_check.load()) {}
    memory& operator=(const memory& other) noexcept {
      if (this == &other) return *this;
      last_check = other.last_check.load();
      generation = 0;
      return *this;
    }

    std::atomic<uint8_t> last_check{0};   // what it found out about debugging
    std::atomic<uint64_t> generation{0};  // of the settings that the verdicts are of; 0: none
    std::atomic<verdicts> kept{0};
  };

  bool is_remembered(verdicts& kept) const noexcept;
  verdicts made_verdicts(const _kp_LOG_configuration* source) const;
  void remember() const noexcept;
  void forget() noexcept { memory_.generation.store(0, std::memory_order_relaxed); }
  bool check_with_callback(const kp_LOG_LogEntry& entry) const;
  bool ask_callback(const kp_LOG_LogEntry& entry) const;
  bool check_anew(unsigned level, unsigned property_mask) const;
  bool passes(const _kp_LOG_configuration* source, unsigned level, unsigned property_mask,
              bool debug_enabled) const;
  bool is_debug_enabled(const _kp_LOG_configuration* source) const;
  bool passes_level(const _kp_LOG_configuration* source, unsigned level, bool debug_entry) const;
  bool passes_mask(const _kp_LOG_configuration* source, unsigned property_mask,
                   bool passes_as_debug_entry) const;
  void note(bool debug_entry, bool debug_enabled) const noexcept;
  bool noted_debug_entry() const noexcept;
  bool noted_pass() const noexcept;

  callback_type callback_ = nullptr;     // null: none
  void* user_data_ = nullptr;            // for the callback
  unsigned property_mask_ = 0xFFFFFFFF;  // bits of which one must be the entry's
  unsigned low_log_level_ = 0;           // 0 to 9
  unsigned high_log_level_ = 9;          // 0 to 9
  const char* section_ = nullptr;        // the caller's; null: none
  mutable memory memory_;
};

#endif
