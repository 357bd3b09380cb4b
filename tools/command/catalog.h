// kplog catalog: translations of messages, from the sources to ICU's bundles.
#ifndef TOOLS_COMMAND_CATALOG_H
#define TOOLS_COMMAND_CATALOG_H

#include "tools/command/command.h"

extern const kplog_command_row catalog_command;

#endif
