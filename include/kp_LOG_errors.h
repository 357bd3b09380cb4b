// The errors of the logging library. All derive from KPX_logging_all; none adds anything to
// kp_EXCEPTION_base: the class tells the kind of error, the message text tells the details.
#ifndef KP_LOG_ERRORS_H
#define KP_LOG_ERRORS_H

#include "base/kp_exception.h"

// Root of every error of the logging library; catch this to catch them all.
class KP_API KPX_logging_all : public kp_EXCEPTION_base {
 public:
  KPX_logging_all(const char* message, int code);
  ~KPX_logging_all() override;
};

// Errors of no other class, with a text built at run time: an entry without a definition is used.
class KP_API KPX_logging_misc : public KPX_logging_all {
 public:
  KPX_logging_misc(const char* message, int code);
  ~KPX_logging_misc() override;
};

// A failure inside the library: a converter or message formatter that could not be built or failed.
class KP_API KPX_logging_internal_error : public KPX_logging_all {
 public:
  KPX_logging_internal_error(const char* message, int code);
  ~KPX_logging_internal_error() override;
};

// A caller's argument out of range or null.
class KP_API KPX_logging_illegal_argument : public KPX_logging_all {
 public:
  KPX_logging_illegal_argument(const char* message, int code);
  ~KPX_logging_illegal_argument() override;
};

// A message catalog, or a string in it, that cannot be found or opened.
class KP_API KPX_logging_missing_resource : public KPX_logging_all {
 public:
  KPX_logging_missing_resource(const char* message, int code);
  ~KPX_logging_missing_resource() override;
};

// A log level above 9.
class KP_API KPX_logging_invalid_log_level : public KPX_logging_all {
 public:
  KPX_logging_invalid_log_level(const char* message, int code);
  ~KPX_logging_invalid_log_level() override;
};

// An index beyond the global attributes.
class KP_API KPX_logging_index_out_of_bound : public KPX_logging_all {
 public:
  KPX_logging_index_out_of_bound(const char* message, int code);
  ~KPX_logging_index_out_of_bound() override;
};

// A definition file that cannot be read, is corrupted, or conflicts with another.
class KP_API KPX_logging_invalid_definition : public KPX_logging_all {
 public:
  KPX_logging_invalid_definition(const char* message, int code);
  ~KPX_logging_invalid_definition() override;
};

// A declared attribute that the entry does not hold, read in strict mode.
class KP_API KPX_logging_attribute_not_found : public KPX_logging_all {
 public:
  KPX_logging_attribute_not_found(const char* message, int code);
  ~KPX_logging_attribute_not_found() override;
};

// An entry ID that no definition file defines.
class KP_API KPX_logging_entry_type_not_found : public KPX_logging_all {
 public:
  KPX_logging_entry_type_not_found(const char* message, int code);
  ~KPX_logging_entry_type_not_found() override;
};

// An entry counter file that cannot be opened.
class KP_API KPX_logging_file_operation_failed : public KPX_logging_all {
 public:
  KPX_logging_file_operation_failed(const char* message, int code);
  ~KPX_logging_file_operation_failed() override;
};

// An attribute name that the entry's definition does not declare.
class KP_API KPX_logging_invalid_attribute_name : public KPX_logging_all {
 public:
  KPX_logging_invalid_attribute_name(const char* message, int code);
  ~KPX_logging_invalid_attribute_name() override;
};

// A message template or selector message index that cannot be used.
class KP_API KPX_logging_invalid_message_string : public KPX_logging_all {
 public:
  KPX_logging_invalid_message_string(const char* message, int code);
  ~KPX_logging_invalid_message_string() override;
};

// A value of another type than the attribute's declared type.
class KP_API KPX_logging_attribute_type_mismatch : public KPX_logging_all {
 public:
  KPX_logging_attribute_type_mismatch(const char* message, int code);
  ~KPX_logging_attribute_type_mismatch() override;
};

// A string value that does not fit its type's size, where cutting is not allowed.
class KP_API KPX_logging_invalid_attribute_value : public KPX_logging_all {
 public:
  KPX_logging_invalid_attribute_value(const char* message, int code);
  ~KPX_logging_invalid_attribute_value() override;
};

#endif
