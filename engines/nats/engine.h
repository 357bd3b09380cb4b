// NATS JetStream (docs/shipping.md).
#ifndef ENGINES_NATS_ENGINE_H
#define ENGINES_NATS_ENGINE_H

#include "tools/ship/engine.h"

extern const engine_row nats_engine;

#endif
