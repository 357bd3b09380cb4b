// kplog check: what is wrong with definitions, and what is probably not meant.
#ifndef TOOLS_COMMAND_CHECK_H
#define TOOLS_COMMAND_CHECK_H

#include "tools/command/command.h"

extern const kplog_command_row check_command;

#endif
