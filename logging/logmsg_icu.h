// The renderer that leaves formatting to ICU.
#ifndef KP_LOG_LOGMSG_ICU_H
#define KP_LOG_LOGMSG_ICU_H

#include <unicode/unistr.h>

class _kp_LOG_log_definition;
class _kp_LOG_log_entry_imp;

// Where templates are taken from.
enum class logmsg_texts {
  catalog,    // where one is open
  definition  // although one is
};

// As _kp_LOG_log_message::get_message, with the entry's multibyte texts read in `code_page`;
// replaces `message`.
void logmsg_render_icu(const _kp_LOG_log_entry_imp& entry, const _kp_LOG_log_definition* definition,
                       bool use_default, unsigned index, const char* code_page,
                       icu::UnicodeString& message, logmsg_texts texts = logmsg_texts::catalog);

#endif
