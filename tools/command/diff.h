// kplog diff: what changed between two sets, and whom it breaks.
#ifndef TOOLS_COMMAND_DIFF_H
#define TOOLS_COMMAND_DIFF_H

#include "tools/command/command.h"

extern const kplog_command_row diff_command;

#endif
