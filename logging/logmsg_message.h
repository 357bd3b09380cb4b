// logmsg_message: a rendered message.
#ifndef KP_LOG_LOGMSG_MESSAGE_H
#define KP_LOG_LOGMSG_MESSAGE_H

#include <unicode/unistr.h>

#include <optional>

#include "logging/logmsg_text.h"

// In the bytes of the code page that was asked for, where it could be written in these; else in
// UTF-16.
struct logmsg_message {
  logmsg_text bytes;
  std::optional<icu::UnicodeString> units;
};

#endif
