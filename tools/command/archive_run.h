// A run of kplog render that asks an engine.
#ifndef TOOLS_COMMAND_ARCHIVE_RUN_H
#define TOOLS_COMMAND_ARCHIVE_RUN_H

#include <iosfwd>

#include "tools/command/render_run.h"
#include "tools/report/outcome.h"

// Shows what fits of the records that the engine at the address of `options.engine` has, which can
// be asked, by the definitions and catalogs that were sent with them, where the options give no
// definitions; until nothing more is there, or, where they are followed, until a signal. Raises
// engine_error.
command_outcome show_archive(const render_options& options, std::ostream& out, emit_report& report,
                             std::ostream& log);

#endif
