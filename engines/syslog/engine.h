// Receivers of syslog over TLS (docs/syslog.md).
#ifndef ENGINES_SYSLOG_ENGINE_H
#define ENGINES_SYSLOG_ENGINE_H

#include "engines/syslog/tls_stream.h"
#include "tools/ship/engine.h"

extern const engine_row syslog_engine;

// What the row opens, with another patience.
std::unique_ptr<ship_engine> open_syslog_engine(const engine_options& options,
                                                const tls_patience& patience);

#endif
