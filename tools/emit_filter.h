// Which entries `kplog emit` writes.
#ifndef TOOLS_EMIT_FILTER_H
#define TOOLS_EMIT_FILTER_H

#include "kp_LOG_EntryFilter.h"
#include "tools/emit_options.h"

// The library's filter, set by the command line and by a configuration file. Events without any
// property flag, which pass no mask, pass here as long as nobody has set one.
class emit_filter {
 public:
  // `options` must live as long as the filter. Raises record_file_error for a configuration file
  // that cannot be read.
  explicit emit_filter(const emit_options& options);

  bool passes(const kp_LOG_LogEntry& entry) const;
  // Reads the configuration file again. Raises record_file_error and goes on with the settings
  // that were read before.
  void reload();

 private:
  bool passes_without_mask(const kp_LOG_LogEntry& entry) const;

  const emit_options& options_;
  _kp_LOG_entry_filter filter_;
  bool has_mask_ = false;  // set by somebody
};

#endif
