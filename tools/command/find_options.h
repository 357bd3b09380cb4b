// The options that choose records.
#ifndef TOOLS_COMMAND_FIND_OPTIONS_H
#define TOOLS_COMMAND_FIND_OPTIONS_H

#include "tools/find/conditions.h"

namespace CLI {
class App;
}

// --event, --where, --grep and --or, --level, --since, --until, --host and --pid.
void add_find_options(CLI::App& command, find_options& options);

// The groups into which --or divided the conditions of the command line. Raises wrong_usage for an
// --or that has no condition on one of its sides.
std::vector<condition_group> condition_groups_of(const CLI::App& command);

#endif
