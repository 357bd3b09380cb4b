// What is kept in the stream of states beside records: how far journals are, as JSON of one object.
#ifndef ENGINES_NATS_STATE_H
#define ENGINES_NATS_STATE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "engines/nats/publisher.h"
#include "tools/ship/engine.h"

// How far a segment is, and what that rests on.
struct nats_position {
  journal_identity journal;
  segment_position position;
  uint64_t records = 0;                // of the segment so far
  std::optional<int64_t> newest = {};  // time of the newest of these
  // The stream of records when this was stored: when it was made, and its newest message that the
  // sender had stored of the journal. Where that is not there, records are not there, either.
  int64_t created = 0;  // nanoseconds since 1970
  nats_stored_message stored = {};
};

std::string nats_text_of(const nats_position& position);
std::optional<nats_position> nats_position_of(std::string_view text);

struct nats_told_state {
  journal_identity journal;
  journal_state state;
};

std::string nats_text_of(const nats_told_state& told);
std::optional<nats_told_state> nats_told_state_of(std::string_view text);

#endif
