// Options of commands that reach engines, and how these commands end.
#ifndef TOOLS_COMMAND_ENGINE_OPTIONS_H
#define TOOLS_COMMAND_ENGINE_OPTIONS_H

#include <functional>
#include <iosfwd>

#include "tools/command/ship_run.h"
#include "tools/report/outcome.h"

namespace CLI {
class App;
}

// --user, --password-file, --tls-ca, --stream and --tenant
void add_engine_options(CLI::App& command, engine_access& access);

// Raises wrong_usage where that is not to be in a command line, or cannot be.
void check_engine_access(const engine_access& access);

// How `run` ends; engine_error is said on `log`, and is the error of a file.
command_outcome outcome_of_engine(const report_options& report, std::ostream& log,
                                  const std::function<command_outcome()>& run);

#endif
