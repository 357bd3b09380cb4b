#include "engines/nats/engine.h"

#include "engines/nats/address.h"
#include "engines/nats/archive.h"
#include "engines/nats/fleet.h"
#include "engines/nats/link.h"
#include "engines/nats/sender.h"

static std::unique_ptr<ship_engine> open_nats(const engine_options& options) {
  return std::make_unique<nats_sender>(options);
}

static std::unique_ptr<record_archive> ask_nats(const engine_options& options,
                                                const archive_query& query) {
  return std::make_unique<nats_archive>(options, query);
}

static std::unique_ptr<fleet_view> view_nats(const engine_options& options) {
  return std::make_unique<nats_fleet>(options);
}

static void check_nats(const std::string& address) {
  nats_address_of(address);
}

static void create_nats(const engine_options& options) {
  nats_link(options).make_streams();
}

const engine_row nats_engine = {.scheme = "nats",
                                .check = check_nats,
                                .open = open_nats,
                                .ask = ask_nats,
                                .view = view_nats,
                                .schema = nats_streams_text,
                                .create = create_nats};
