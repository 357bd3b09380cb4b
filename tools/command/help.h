// kplog help: the help of a command, as its option --help gives it.
#ifndef TOOLS_COMMAND_HELP_H
#define TOOLS_COMMAND_HELP_H

#include "tools/command/command.h"

extern const kplog_command_row help_command;

#endif
