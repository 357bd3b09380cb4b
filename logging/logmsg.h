// Message templates, the message catalog, and the renderers.
#ifndef KP_LOG_LOGMSG_H
#define KP_LOG_LOGMSG_H

#include <unicode/uversion.h>

#include "base/kp_export.h"
#include "base/kp_string.h"

U_NAMESPACE_BEGIN
class UnicodeString;
U_NAMESPACE_END
class _kp_LOG_log_definition;
class _kp_LOG_log_entry_imp;
class _kp_LOG_msg_token_list;

// Operations on messages; static only. Template syntax: docs/message-templates.md.
class KP_API _kp_LOG_log_message {
 public:
  _kp_LOG_log_message() = delete;

  // --- Catalog: process-wide ---
  // Opens the catalog at `path` for ICU's default locale, or closes it for null. A catalog that
  // cannot be opened stays installed, and the path is kept. Raises KPX_logging_missing_resource
  // "<KPX_logging_missing_resource> Unable to locate resource bundle \"PATH\"." when it is missing,
  // "<KPX_logging_missing_resource> Unable to access resource bundle \"PATH\"." for any other
  // failure. Called under the process-wide lock.
  static void set_resource_path(const char* path);
  // The path last set; "" when there is none. Valid to the end of the process.
  static const char* get_resource_path();
  // Whether a catalog is installed, usable or not.
  static bool has_catalog();
  // The template with message ID `id`. Raises KPX_logging_missing_resource
  // "< KPX_logging_missing_resource> Unable to access the string table resource." without a usable
  // table "STRING_TABLE",
  // "<KPX_logging_missing_resource> Unable to retrieve the string from the string table.".
  static icu::UnicodeString _get_string(const char* id);

  // --- Tokens ---
  // Split a template into the tokens of `list`, which must be empty. Tokens added before an error
  // stay on the list. See docs/message-templates.md for what each keeps and drops.
  // The byte tokenizer raises KPX_index_out_of_bounds (null message) for a lone "%" that ends
  // literal text; a text without a buffer is an empty one. The Unicode tokenizer raises
  // KPX_logging_internal_error
  // "<KPX_logging_internal_error> _kp_LOG_log_message::_tokenize_string:  UnicodeConverter
  // constructor failed!" when there is no UTF-8 converter, and
  // "<KPX_logging_internal_error>_kp_LOG_log_message::_tokenize_string:
  // UnicodeConverter::fromUnicodeString() failed!" (two blanks after the colon) for a name that
  // takes more than two bytes a UTF-16 unit and two more.
  static void _tokenize_kpString(const kp_String& text, _kp_LOG_msg_token_list& list);
  static void _tokenize_string(const icu::UnicodeString& text, _kp_LOG_msg_token_list& list);
  // The number of format specifier tokens.
  static unsigned _get_number_of_attributes(const _kp_LOG_msg_token_list& list);

  // --- Choice of the template, and rendering ---
  // `use_default` takes the default message; else a non-zero `index` names a selector message, and
  // 0 chooses by the value of the definition's selector attribute. KPX_logging_misc
  // "_kp_LOG_log_entry_imp::_get_attribute_internal(): entry not initialized" for a null
  // definition. KPX_logging_invalid_message_string
  // "<KPX_logging_invalid_message_string> Invalid selector message index specified.".
  static kp_String _get_message_kpString(const _kp_LOG_log_entry_imp& entry,
                                         const _kp_LOG_log_definition* definition, bool use_default,
                                         unsigned index);
  // Both renderers raise KPX_logging_invalid_message_string with
  // "<KPX_logging_invalid_message_string> _kp_LOG_log_message::get_message:  " and
  // "unable to find attribute value for \"NAME\"!" or
  // "invalid format specifier for attribute \"NAME\"!", and what the attribute getters raise.
  // Through ICU, in ICU's default locale. KPX_logging_invalid_definition
  // "<KPX_logging_invalid_definition>  no default message" when a catalog is installed and there is
  // no message ID. KPX_logging_internal_error "... MessageFormat constructor failed! ..." for a
  // pattern that ICU refuses and for more than ten arguments, "... MessageFormat::format() failed!"
  // when ICU cannot show a value.
  static icu::UnicodeString get_message(const _kp_LOG_log_entry_imp& entry,
                                        const _kp_LOG_log_definition* definition, bool use_default,
                                        unsigned index);
  // The same for a template that need not be the definition's nor the catalog's; what stands in
  // those does not matter. The entry has a definition, and its strings are in UTF-8.
  static icu::UnicodeString _render_template(const _kp_LOG_log_entry_imp& entry,
                                             const icu::UnicodeString& text);
  // Through the C library's formats, as bytes.
  static kp_String get_kpString_message(const _kp_LOG_log_entry_imp& entry,
                                        const _kp_LOG_log_definition* definition, bool use_default,
                                        unsigned index);
};

#endif
