#include "engines/nats/engine.h"

const engine_row nats_engine = {.scheme = "nats"};
