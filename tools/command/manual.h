// Manual pages of the command line.
#ifndef TOOLS_COMMAND_MANUAL_H
#define TOOLS_COMMAND_MANUAL_H

#include <string>

#include "tools/command/description.h"

// The page of a command, or of kplog itself, in the language of man(7). `version` stands in its
// footer. The same command line gives the same bytes.
std::string manual_page(const command_description& command, const std::string& version);

// "kplog-catalog-build.1"
std::string manual_page_file(const command_description& command);

#endif
