// A process around the command line.
#ifndef TOOLS_COMMAND_PROCESS_H
#define TOOLS_COMMAND_PROCESS_H

#include <span>

#include "tools/ship/engine.h"

// What main does, with the engines that the program was linked with. The result is the status.
int run_process(int argc, char** argv, std::span<const engine_row> engines);

#endif
