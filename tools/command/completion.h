// Completion of the command line in shells.
#ifndef TOOLS_COMMAND_COMPLETION_H
#define TOOLS_COMMAND_COMPLETION_H

#include <string>

#include "tools/command/description.h"

// Scripts that complete the commands, their options, and the values of options: choices, files,
// folders. Each goes where its shell looks for completions of "kplog".
std::string bash_completion(const command_description& kplog);
std::string zsh_completion(const command_description& kplog);
std::string fish_completion(const command_description& kplog);

#endif
