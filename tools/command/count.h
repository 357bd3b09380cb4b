// kplog count: what counter files hold.
#ifndef TOOLS_COMMAND_COUNT_H
#define TOOLS_COMMAND_COUNT_H

#include "tools/command/command.h"

extern const kplog_command_row count_command;

#endif
