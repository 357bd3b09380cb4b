// kplog header: a C++ header with typed classes for the events of a set.
#ifndef TOOLS_COMMAND_HEADER_H
#define TOOLS_COMMAND_HEADER_H

#include "tools/command/command.h"

extern const kplog_command_row header_command;

#endif
