// kplog-ship, the program that is linked with the libraries of the engines.
#ifndef TOOLS_COMMAND_ENGINE_PROGRAM_H
#define TOOLS_COMMAND_ENGINE_PROGRAM_H

#include <string>

#include "tools/ship/engine.h"

// The engine of that address. In a program without engines the process becomes kplog-ship, which
// stands in the same folder, with the same command line; so nothing may have been done before.
// Raises file_error where that is not installed, and wrong_usage for an address of no engine.
const engine_row& engine_at(const std::string& address);

#endif
