// The renderer that formats values itself, for when ICU is disabled.
#ifndef KP_LOG_LOGMSG_BYTES_H
#define KP_LOG_LOGMSG_BYTES_H

#include "logging/logmsg_text.h"

class _kp_LOG_log_definition;
class _kp_LOG_log_entry_imp;

// As _kp_LOG_log_message::get_kpString_message; into `message`, which is empty. The text holds no
// NUL.
void logmsg_render_bytes(const _kp_LOG_log_entry_imp& entry,
                         const _kp_LOG_log_definition* definition, bool use_default, unsigned index,
                         logmsg_text& message);

#endif
