// kplog completion and kplog manual: what packages install beside the program.
#ifndef TOOLS_COMMAND_GENERATE_H
#define TOOLS_COMMAND_GENERATE_H

#include "tools/command/command.h"

extern const kplog_command_row completion_command;
extern const kplog_command_row manual_command;

#endif
