#include <atomic>

#include "kp_LOG_EntryFilter.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_LogEntry.h"
#include "kp_LOG_errors.h"
#include "logging/logcfg_file.h"
#include "logging/logentry_i.h"
#include "logging/raise.h"
#include "logging/settings.h"

// The property of entries that are meant for debugging.
static constexpr unsigned debug_property = 0x04000000;

void _kp_LOG_entry_filter::set_filter_log_level(unsigned int low, unsigned int high) {
  if (low > LOG_LEVEL_HIGH || high > LOG_LEVEL_HIGH)
    kp_log_raise<KPX_logging_invalid_log_level>(
        "_kp_LOG_entry_filter::set_filter_log_level():  illegal log level specified.");
  low_log_level_ = low;
  high_log_level_ = high;
  forget();
}

// --- What a configuration source changes ---

[[gnu::noinline]] bool _kp_LOG_entry_filter::is_debug_enabled(
    const _kp_LOG_configuration* source) const {
  unsigned enabled = 0;
  return source != nullptr && source->get_integer_value(section_, "DebugEnabled", enabled) &&
         enabled != 0;
}

// The levels that pass, from low to high.
struct filter_level_range {
  bool holds(unsigned level) const noexcept { return low <= level && level <= high; }

  unsigned low;
  unsigned high;
};

[[gnu::noinline]] static filter_level_range configured_range(const _kp_LOG_configuration& source,
                                                             const char* section, bool debug_entry,
                                                             filter_level_range range) {
  source.get_integer_value(section, "LogLevelLow", range.low);
  source.get_integer_value(section, "LogLevelHigh", range.high);
  if (debug_entry) {
    source.get_integer_value(section, "DebugLogLevelLow", range.low);
    source.get_integer_value(section, "DebugLogLevelHigh", range.high);
  }
  return range;
}

[[gnu::noinline]] static unsigned configured_mask(const _kp_LOG_configuration& source,
                                                  const char* section, unsigned mask) {
  source.get_integer_value(section, "PropertyMask", mask);
  return mask;
}

bool _kp_LOG_entry_filter::passes_level(const _kp_LOG_configuration* source, unsigned level,
                                        bool debug_entry) const {
  const filter_level_range own = {low_log_level_, high_log_level_};
  if (source == nullptr) return own.holds(level);
  return configured_range(*source, section_, debug_entry, own).holds(level);
}

bool _kp_LOG_entry_filter::passes_mask(const _kp_LOG_configuration* source, unsigned property_mask,
                                       bool passes_as_debug_entry) const {
  if (source == nullptr) return (property_mask & property_mask_) != 0;
  if (passes_as_debug_entry) return true;
  return (property_mask & configured_mask(*source, section_, property_mask_)) != 0;
}

// --- What is remembered of it ---

// A word of verdicts: a bit for each level that passes, those of debug entries behind the others;
// whether debugging is enabled; whether there is a source; in the upper half the mask.
static constexpr unsigned n_filter_levels = LOG_LEVEL_HIGH + 1;
static constexpr uint64_t verdict_debug_enabled = uint64_t{1} << (2 * n_filter_levels);
static constexpr uint64_t verdict_has_source = verdict_debug_enabled << 1;
static constexpr unsigned verdict_mask_shift = 32;
// In the place of a generation: verdicts are being written.
static constexpr uint64_t verdicts_in_the_making = ~uint64_t{0};

static uint64_t passing_levels_of(filter_level_range range) noexcept {
  uint64_t levels = 0;
  for (unsigned level = 0; level < n_filter_levels; ++level)
    if (range.holds(level)) levels |= uint64_t{1} << level;
  return levels;
}

static bool passes_by_verdicts(uint64_t verdicts, unsigned level, unsigned property_mask,
                               bool debug_enabled) noexcept {
  const bool debug_entry = (property_mask & debug_property) != 0;
  const uint64_t levels = debug_entry ? verdicts >> n_filter_levels : verdicts;
  if ((levels >> level & 1) == 0) return false;
  if (debug_entry && debug_enabled && (verdicts & verdict_has_source) != 0) return true;
  return (property_mask & verdicts >> verdict_mask_shift) != 0;
}

// Whether there are verdicts of the settings as they are. Where there is a source that no file has
// been read for, a look-up may have to read one. Of settings beside the process's nothing is
// remembered.
inline bool _kp_LOG_entry_filter::is_remembered(verdicts& kept) const noexcept {
  if (!kp_log_settings::current().is_of_process()) return false;
  const uint64_t now = kp_logcfg_generation.load(std::memory_order_acquire);
  if (memory_.generation.load(std::memory_order_acquire) != now) return false;
  kept = memory_.kept.load(std::memory_order_acquire);
  if (memory_.generation.load(std::memory_order_relaxed) != now) return false;
  return (kept & verdict_has_source) == 0 || kp_load(_kp_LOG_file_configuration::bCfgReaded) != 0;
}

_kp_LOG_entry_filter::verdicts _kp_LOG_entry_filter::made_verdicts(
    const _kp_LOG_configuration* source) const {
  const filter_level_range own = {low_log_level_, high_log_level_};
  const auto verdicts_of = [](filter_level_range plain, filter_level_range debug, unsigned mask) {
    return passing_levels_of(plain) | passing_levels_of(debug) << n_filter_levels |
           uint64_t{mask} << verdict_mask_shift;
  };
  if (source == nullptr) return verdicts_of(own, own, property_mask_);
  return verdicts_of(configured_range(*source, section_, false, own),
                     configured_range(*source, section_, true, own),
                     configured_mask(*source, section_, property_mask_)) |
         verdict_has_source | (is_debug_enabled(source) ? verdict_debug_enabled : 0);
}

// For the checks to come, unless the settings change meanwhile or another thread does the same.
[[gnu::noinline]] void _kp_LOG_entry_filter::remember() const noexcept {
  if (!kp_log_settings::current().is_of_process()) return;
  const uint64_t now = kp_logcfg_generation.load(std::memory_order_acquire);
  const _kp_LOG_configuration* const source = kp_LOG_LogConfig::_get_configuration_ptr();
  if (source != nullptr && kp_load(_kp_LOG_file_configuration::bCfgReaded) == 0) return;
  verdicts made = 0;
  try {
    made = made_verdicts(source);
  } catch (...) {
    return;  // the check to come may tell
  }
  uint64_t before = memory_.generation.load(std::memory_order_relaxed);
  if (before == verdicts_in_the_making ||
      !memory_.generation.compare_exchange_strong(before, verdicts_in_the_making,
                                                  std::memory_order_acq_rel))
    return;
  memory_.kept.store(made, std::memory_order_release);
  const bool is_current = kp_logcfg_generation.load(std::memory_order_acquire) == now;
  memory_.generation.store(is_current ? now : 0, std::memory_order_release);
}

// --- What the last check found out ---

static constexpr uint8_t noted_entry = 1, noted_enabled = 2;

// Written only when it changes: threads that share a filter do not take it from each other.
inline void _kp_LOG_entry_filter::note(bool debug_entry, bool debug_enabled) const noexcept {
  const auto found =
      static_cast<uint8_t>((debug_entry ? noted_entry : 0) | (debug_enabled ? noted_enabled : 0));
  if (memory_.last_check.load(std::memory_order_relaxed) != found)
    memory_.last_check.store(found, std::memory_order_relaxed);
}

bool _kp_LOG_entry_filter::noted_debug_entry() const noexcept {
  return (memory_.last_check.load(std::memory_order_relaxed) & noted_entry) != 0;
}

bool _kp_LOG_entry_filter::noted_pass() const noexcept {
  return memory_.last_check.load(std::memory_order_relaxed) == (noted_entry | noted_enabled);
}

// --- Checking ---

// By the settings themselves, in the order in which they are described.
bool _kp_LOG_entry_filter::passes(const _kp_LOG_configuration* source, unsigned level,
                                  unsigned property_mask, bool debug_enabled) const {
  const bool debug_entry = (property_mask & debug_property) != 0;
  return passes_level(source, level, debug_entry) &&
         passes_mask(source, property_mask, debug_entry && debug_enabled);
}

bool _kp_LOG_entry_filter::accepts(unsigned level, unsigned property_mask) const {
  verdicts kept = 0;
  const bool is_entry_level = level <= LOG_LEVEL_HIGH;
  if (is_entry_level && is_remembered(kept))
    return passes_by_verdicts(kept, level, property_mask, (kept & verdict_debug_enabled) != 0);
  const _kp_LOG_configuration* const source = kp_LOG_LogConfig::_get_configuration_ptr();
  const bool accepted = passes(source, level, property_mask, is_debug_enabled(source));
  if (is_entry_level) remember();
  return accepted;
}

bool _kp_LOG_entry_filter::check_entry(const kp_LOG_LogEntry& entry) const {
  if (callback_ != nullptr) return check_with_callback(entry);
  const _kp_LOG_log_entry_imp& imp = entry._get_imp();
  const unsigned property_mask = imp.get_property_mask();
  verdicts kept = 0;
  if (!is_remembered(kept)) return check_anew(imp.get_log_level(), property_mask);
  const bool debug_enabled = (kept & verdict_debug_enabled) != 0;
  note((property_mask & debug_property) != 0, debug_enabled);
  return passes_by_verdicts(kept, imp.get_log_level(), property_mask, debug_enabled);
}

[[gnu::noinline]] bool _kp_LOG_entry_filter::check_anew(unsigned level,
                                                        unsigned property_mask) const {
  const _kp_LOG_configuration* const source = kp_LOG_LogConfig::_get_configuration_ptr();
  const bool debug_enabled = is_debug_enabled(source);
  note((property_mask & debug_property) != 0, debug_enabled);
  const bool passed = passes(source, level, property_mask, debug_enabled);
  remember();
  return passed;
}

// The callback may replace the source: what was found out about debugging before it still holds,
// everything else is asked for behind it.
[[gnu::noinline]] bool _kp_LOG_entry_filter::check_with_callback(
    const kp_LOG_LogEntry& entry) const {
  const _kp_LOG_log_entry_imp& imp = entry._get_imp();
  const unsigned property_mask = imp.get_property_mask();
  verdicts kept = 0;
  const bool debug_enabled = is_remembered(kept)
                                 ? (kept & verdict_debug_enabled) != 0
                                 : is_debug_enabled(kp_LOG_LogConfig::_get_configuration_ptr());
  const bool debug_entry = (property_mask & debug_property) != 0;
  note(debug_entry, debug_enabled);
  if (!(debug_entry && debug_enabled) && !ask_callback(entry)) return false;
  if (is_remembered(kept))
    return passes_by_verdicts(kept, imp.get_log_level(), property_mask, debug_enabled);
  const bool passed = passes(kp_LOG_LogConfig::_get_configuration_ptr(), imp.get_log_level(),
                             property_mask, debug_enabled);
  remember();
  return passed;
}

bool _kp_LOG_entry_filter::ask_callback(const kp_LOG_LogEntry& entry) const {
  const _kp_LOG_log_entry_imp& imp = entry._get_imp();
  return callback_(imp.get_entry_id(), imp.get_property_mask(), imp.get_log_level(), entry,
                   user_data_);
}

bool _kp_LOG_entry_filter::_check_entry_by_callback(const kp_LOG_LogEntry& entry) const {
  return noted_pass() || callback_ == nullptr || ask_callback(entry);
}

bool _kp_LOG_entry_filter::_check_entry_by_log_level(const _kp_LOG_log_entry_imp& entry) const {
  return passes_level(kp_LOG_LogConfig::_get_configuration_ptr(), entry.get_log_level(),
                      noted_debug_entry());
}

bool _kp_LOG_entry_filter::_check_entry_by_property_mask(const _kp_LOG_log_entry_imp& entry) const {
  return passes_mask(kp_LOG_LogConfig::_get_configuration_ptr(), entry.get_property_mask(),
                     noted_pass());
}
