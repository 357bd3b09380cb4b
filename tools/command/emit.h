// kplog emit: records become entries, messages, logs and counts.
#ifndef TOOLS_COMMAND_EMIT_H
#define TOOLS_COMMAND_EMIT_H

#include "tools/command/command.h"

extern const kplog_command_row emit_command;

#endif
