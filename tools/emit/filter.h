// Which entries `kplog emit` writes.
#ifndef TOOLS_EMIT_FILTER_H
#define TOOLS_EMIT_FILTER_H

#include <optional>
#include <string>

#include "kp_LOG_EntryFilter.h"
#include "logging/logentry_i.h"

// What the command line says of it.
struct filter_settings {
  std::string config;   // empty: no configuration file
  std::string section;  // of that file
  unsigned min_level = 0;
  unsigned max_level = LOG_LEVEL_HIGH;
  std::optional<unsigned> mask;  // nothing: every event passes, also one without any flag
};

// The library's filter, set by the command line and by a configuration file. Events without any
// property flag, which pass no mask, pass here as long as nobody has set one.
class emit_filter {
 public:
  // `settings` must live as long as the filter. Raises file_error for a configuration file
  // that cannot be read.
  explicit emit_filter(const filter_settings& settings);

  bool passes(const kp_LOG_LogEntry& entry) const;
  // Reads the configuration file again. Raises file_error and goes on with the settings
  // that were read before.
  void reload();

 private:
  bool passes_without_mask(const kp_LOG_LogEntry& entry) const;

  const filter_settings& settings_;
  _kp_LOG_entry_filter filter_;
  bool has_mask_ = false;  // set by somebody
};

#endif
