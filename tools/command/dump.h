// kplog dump: what a compiled definition file says.
#ifndef TOOLS_COMMAND_DUMP_H
#define TOOLS_COMMAND_DUMP_H

#include "tools/command/command.h"

extern const kplog_command_row dump_command;

#endif
