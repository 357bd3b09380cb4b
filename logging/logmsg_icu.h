// The renderer that shows values as ICU does, in the current locale.
#ifndef KP_LOG_LOGMSG_ICU_H
#define KP_LOG_LOGMSG_ICU_H

#include "logging/logmsg_message.h"

class _kp_LOG_log_definition;
class _kp_LOG_log_entry_imp;

// Where templates are taken from.
enum class logmsg_texts {
  catalog,    // where one is open
  definition  // although one is
};

// Code pages, as kp_log_kept_text keeps their names; "" is ICU's default one.
struct logmsg_pages {
  const char* input;   // of the entry's multibyte texts
  const char* output;  // of the message; null: it is wanted in UTF-16
};

// As _kp_LOG_log_message::get_message.
void logmsg_render_icu(const _kp_LOG_log_entry_imp& entry, const _kp_LOG_log_definition* definition,
                       bool use_default, unsigned index, const logmsg_pages& pages,
                       logmsg_message& message, logmsg_texts texts = logmsg_texts::catalog);

#endif
