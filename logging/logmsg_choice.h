// Which message an entry is rendered with.
#ifndef KP_LOG_LOGMSG_CHOICE_H
#define KP_LOG_LOGMSG_CHOICE_H

#include <cstdint>

class _kp_LOG_log_definition;
class _kp_LOG_log_entry_imp;

// The chosen message. Where a selector message lacks one of the two, the default message's stands
// in; null when that is missing too. The texts are the definition's.
struct logmsg_choice {
  const char* id;
  const char* text;
  uint64_t id_identity;    // of the message that the ID is taken from
  uint64_t text_identity;  // of the message that the text is taken from
};

// Chooses as _kp_LOG_log_message::get_message describes, and raises what it says.
logmsg_choice logmsg_choose(const _kp_LOG_log_entry_imp& entry,
                            const _kp_LOG_log_definition* definition, bool use_default,
                            unsigned index);

#endif
