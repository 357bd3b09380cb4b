// The library's own debug log: "zel_debug.log" in the working directory.
#ifndef KP_LOG_DEBUG_LOG_H
#define KP_LOG_DEBUG_LOG_H

#include "base/kp_export.h"

// The process-wide debug level; 0, the value at load time, means that the debug log is off.
// Levels in use: 1 errors, 2 configuration changes, 3 tracing of the definition table. Written
// without a lock; a change is seen by later messages.
KP_API extern unsigned debug_log_level;

// Appends one line to the debug log: "YYYY/MM/DD HH:MM:SS(pid=P)(tid=T):" in local time, then the
// format with its arguments as printf has it. No newline is added: every format ends in "\n".
// A line of level 9 is always written; any other one only when debug_log_level is neither 0 nor
// below `level`. A filtered-out call costs one load and one comparison.
// The file is opened, appended to with a single write, and closed again for every line, so it may
// be rotated or deleted at any time. A link is followed. A file that cannot be opened, or that is
// neither a regular file nor a character device, loses the line. Of a line whose format fails
// midway, what was formatted before is written. Never raises, takes no lock, keeps errno. Any
// thread may call it. `format` must not be text that comes from outside the program.
KP_API void LogDebugMessage(unsigned level, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// Sets debug_log_level when `level` is 0 to 9; any other value is ignored.
KP_API void EnableDebugLog(int level);

KP_API unsigned GetDebugLogLevel();

// The library's version, "1.1.1.0000". Static storage.
KP_API const char* GetZELVersion();

#endif
