// A run of kplog ship --verify.
#ifndef TOOLS_COMMAND_VERIFY_RUN_H
#define TOOLS_COMMAND_VERIFY_RUN_H

#include <iosfwd>

#include "tools/command/ship_run.h"
#include "tools/report/outcome.h"

// Holds the journal, and the counter file where there is one, against what the engine has of them,
// and names what differs: findings.
command_outcome run_verify(const ship_options& options, std::ostream& out, std::ostream& log);

#endif
