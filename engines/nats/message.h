// Messages in which records travel: a line of JSON that says whose and which they are, and then the
// records, each on a line as it was written (docs/shipping-nats.md).
#ifndef ENGINES_NATS_MESSAGE_H
#define ENGINES_NATS_MESSAGE_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/ship/shipped_record.h"

// A piece of a record that is too large for a message: of the record as a frame of zstd.
struct nats_part {
  uint64_t number = 0;  // from 0
  bool is_last = false;
  uint64_t size = 0;    // that the record was cut by: pieces of one size fit together
  uint64_t digest = 0;  // of the record
};

struct nats_message_head {
  journal_identity journal;
  std::string segment;
  std::vector<uint64_t> lines;         // of the records, ascending
  std::optional<nats_part> part = {};  // nothing: records as they are
};

// Replaces `message` with one of these records, of which there is at least one.
void write_nats_message(std::string& message, const journal_identity& journal,
                        const std::string& segment, std::span<const shipped_record* const> records);

// Replaces `message` with a piece of a record.
void write_nats_part(std::string& message, const journal_identity& journal,
                     const std::string& segment, const shipped_record& record,
                     const nats_part& part, std::string_view bytes);

// What the message says of itself; `message` is what stands behind that. Nothing where it is not a
// message of records.
std::optional<nats_message_head> read_nats_message(std::string_view& message);

// What the engine knows repetitions by within its duplicate window: told by all that is in the
// message, so that no message that has more in it, or something else, is taken for another one's
// repetition.
std::string nats_message_id(const journal_identity& journal, const std::string& segment,
                            std::span<const shipped_record* const> records,
                            const std::optional<nats_part>& part);

#endif
