// What the definition table tells of its work, at level 3, and how it names itself. `line` is the
// caller's.
#ifndef KP_LOG_LDF_LOAD_TRACE_H
#define KP_LOG_LDF_LOAD_TRACE_H

#include "kp_LOG_debug_log.h"
#include "logging/ldf_load_record.h"
#include "logging/raise.h"

inline void kp_ldf_trace_not_located(int line) noexcept {
  LogDebugMessage(3, "%s:%d _kp_LOG_log_definition_tbl::_retrieve_entry_definition return false\n",
                  kp_ldf_load_source, line);
}

inline void kp_ldf_trace_not_found(int line, unsigned n_cached) noexcept {
  LogDebugMessage(3, "%s:%d _kp_LOG_log_definition_tbl::_find_entry_non_const return 0 %d\n",
                  kp_ldf_load_source, line, static_cast<int>(n_cached));
}

inline void kp_ldf_trace_no_file(int line) noexcept {
  LogDebugMessage(
      3, "%s:%d _kp_LOG_log_definition_tbl::_retrieve_entry_definition return false pfile=0\n",
      kp_ldf_load_source, line);
}

inline void kp_ldf_trace_retrieved(int line) noexcept {
  LogDebugMessage(3, "%s:%d _kp_LOG_log_definition_tbl::_retrieve_entry_definition return true\n",
                  kp_ldf_load_source, line);
}

// Every look-up comes by here: where nothing is told, not even the call is made.
inline void kp_ldf_trace_look_up(int line, unsigned n_cached) noexcept {
  if (kp_load(debug_log_level) < 3) return;
  LogDebugMessage(
      3, "%s:%d _kp_LOG_log_definition_tbl::_find_entry_non_const n_entry_definitions_cached:%d\n",
      kp_ldf_load_source, line, static_cast<int>(n_cached));
}

#endif
