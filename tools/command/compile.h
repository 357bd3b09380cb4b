// kplog compile: definition sources to a definition file.
#ifndef TOOLS_COMMAND_COMPILE_H
#define TOOLS_COMMAND_COMPILE_H

#include "tools/command/command.h"

extern const kplog_command_row compile_command;

#endif
