#include "kp_LOG_errors.h"

// Out of line, so that each class has its vtable and its type information in this library alone and
// a handler in any other one catches it.
#define KP_LOG_DEFINE_ERROR(name, base)                              \
  name::name(const char* message, int code) : base(message, code) {} \
  name::~name() = default;

KP_LOG_DEFINE_ERROR(KPX_logging_all, kp_EXCEPTION_base)
KP_LOG_DEFINE_ERROR(KPX_logging_misc, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_internal_error, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_illegal_argument, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_missing_resource, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_invalid_log_level, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_index_out_of_bound, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_invalid_definition, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_attribute_not_found, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_entry_type_not_found, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_file_operation_failed, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_invalid_attribute_name, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_invalid_message_string, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_attribute_type_mismatch, KPX_logging_all)
KP_LOG_DEFINE_ERROR(KPX_logging_invalid_attribute_value, KPX_logging_all)
