// Loading one entry record of a definition file into a definition.
#ifndef KP_LOG_LDF_LOAD_RECORD_H
#define KP_LOG_LDF_LOAD_RECORD_H

#include "logging/def_read_view.h"
#include "logging/log_definition.h"

// The name by which debug lines tell where they come from.
constexpr char kp_ldf_load_source[] = "logging/ldf_load";

// Raises the error of a file that cannot be read, with a debug line that names `line`.
[[noreturn]] void kp_ldf_raise_file_error(int line);

// A file's rules for the records that come from it.
struct _kp_LOG_ldf_record_source {
  bool is_aux;              // adds to what the definition holds, and must not contradict it
  const char* log_version;  // of the file
};

// Reads the record at the view's position, which must be that of entry type `id`, into `def`. What
// was read before an error stays in the definition. Raises the errors of the definition table.
// Whether reading the same record into it again would change nothing: it has no attributes but its
// selector attribute, and no selector messages.
bool kp_ldf_load_record(_kp_LOG_ldf_view& view, const _kp_LOG_ldf_record_source& source,
                        unsigned id, _kp_LOG_log_definition& def);

#endif
