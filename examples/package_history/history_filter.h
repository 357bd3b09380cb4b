// Filtering: which events are logged and counted.
#ifndef PACKAGE_HISTORY_FILTER_H
#define PACKAGE_HISTORY_FILTER_H

#include "history_options.h"
#include "kp_LOG.h"

// A filter of the levels that the options name and of every property but that of debug entries: the
// changes of a package's state are debug entries (package_history.yaml) and pass where the
// configuration switches "DebugEnabled" on. Makes the options' configuration file the library's
// configuration source; its values replace those of the filter at each check
// (docs/configuration-file.md). The filter uses the options' section as long as it lives. Raises
// std::runtime_error for a configuration file that cannot be read.
_kp_LOG_entry_filter make_history_filter(const history_options& options);

#endif
