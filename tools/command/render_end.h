// How a run that showed records ends.
#ifndef TOOLS_COMMAND_RENDER_END_H
#define TOOLS_COMMAND_RENDER_END_H

#include <iosfwd>

#include "tools/command/ending_signals.h"
#include "tools/command/render_run.h"
#include "tools/report/outcome.h"

// Says how many records there were, where a summary is wanted.
command_outcome end_of(const record_rendering& rendering, const render_options& options,
                       emit_report& report, std::ostream& log);

// What standard output did not take is told by whoever flushes it.
command_outcome output_failed(const ending_output& shown, std::ostream& out);

#endif
