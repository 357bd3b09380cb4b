// Receivers of OTLP, the protocol of OpenTelemetry, over HTTP (docs/otlp.md).
#ifndef ENGINES_OTLP_ENGINE_H
#define ENGINES_OTLP_ENGINE_H

#include "engines/otlp/http_post.h"
#include "tools/ship/engine.h"

extern const engine_row otlp_http_engine;
extern const engine_row otlp_https_engine;

struct otlp_limits {
  http_patience patience = {};
  size_t request = size_t{4} << 20;  // bytes of a request before it is compressed, about
  unsigned tries = 8;
  std::chrono::milliseconds first_wait{500};  // before the second; twice as much before each other
  std::chrono::seconds longest_wait{60};      // that the receiver may ask for
};

// What the rows open, with other limits.
std::unique_ptr<ship_engine> open_otlp_engine(const engine_options& options,
                                              const otlp_limits& limits);

#endif
