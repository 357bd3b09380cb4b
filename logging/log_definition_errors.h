// Errors that several files raise about definition files.
#ifndef KP_LOG_LOG_DEFINITION_ERRORS_H
#define KP_LOG_LOG_DEFINITION_ERRORS_H

#include "kp_LOG_errors.h"
#include "logging/log_util_raise.h"

// A record is not the one it should be, or holds more than it may.
[[noreturn]] inline void kp_log_raise_corrupted_definition() {
  kp_log_raise<KPX_logging_invalid_definition>(
      "<KPX_logging_invalid_definition> The definition file is corrupted.");
}

// A definition file that was opened cannot be read.
[[noreturn]] inline void kp_log_raise_unreadable_definition() {
  kp_log_raise<KPX_logging_invalid_definition>(
      "<KPX_logging_invalid_definition> Unable to access definition file successfully.");
}

#endif
