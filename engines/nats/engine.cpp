#include "engines/nats/engine.h"

#include "engines/nats/link.h"
#include "engines/nats/sender.h"

static std::unique_ptr<ship_engine> open_nats(const engine_options& options) {
  return std::make_unique<nats_sender>(options);
}

static void create_nats(const engine_options& options) {
  nats_link(options).make_streams();
}

const engine_row nats_engine = {.scheme = "nats", .open = open_nats, .create = create_nats};
