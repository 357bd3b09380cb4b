// kplog render: stored records as messages.
#ifndef TOOLS_COMMAND_RENDER_H
#define TOOLS_COMMAND_RENDER_H

#include "tools/command/command.h"

extern const kplog_command_row render_command;

#endif
