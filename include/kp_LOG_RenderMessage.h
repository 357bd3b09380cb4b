// kp_LOG_RenderMessage: the readable message of an entry, as a string of any length.
#ifndef KP_LOG_RENDERMESSAGE_H
#define KP_LOG_RENDERMESSAGE_H

#include <string>

#include "base/kp_export.h"

class _kp_LOG_log_entry_imp;
class kp_LOG_LogEntry;

// Renders the entry's message anew, in the code page that is configured now; neither reads nor
// writes the entry's cache. `use_default` takes the default message; else `index` names a selector
// message by its index, and 0 leaves the choice to the value of the selector attribute.
// With ICU disabled the bytes are given as rendered. With the environment variable
// "_KP_DISABLE_READABLE_MSG" set the result is
// "kp_LOG_LogEntry::GetMessage:  this method is not yet supported.".
// Raises what the choice of the template, the tokenizers and the renderers raise, and
// KPX_logging_internal_error
//   "_kp_LOG_log_message::get_readable_message:  UnicodeConverter constructor failed!" for a code
//   page that ICU does not know,
//   "_kp_LOG_log_message::get_readable_message:  MessageFormat::format() failed!" for a text that
//   cannot be converted.
// Any thread may render its own entries. It needs a stack of 64 KiB, and up to 384 KiB where
// literal text nests arguments (docs/message-templates.md).
KP_API std::string kp_LOG_RenderMessage(const kp_LOG_LogEntry& entry, bool use_default = false,
                                        unsigned index = 0);
KP_API std::string kp_LOG_RenderMessage(const _kp_LOG_log_entry_imp& entry,
                                        bool use_default = false, unsigned index = 0);

// The same, of the texts of the entry's definition, as if no catalog were open: what there is to
// say where kp_LOG_RenderMessage raises KPX_logging_missing_resource, because the catalog lacks the
// message.
KP_API std::string kp_LOG_RenderDefinitionMessage(const kp_LOG_LogEntry& entry,
                                                  bool use_default = false, unsigned index = 0);
KP_API std::string kp_LOG_RenderDefinitionMessage(const _kp_LOG_log_entry_imp& entry,
                                                  bool use_default = false, unsigned index = 0);

#endif
