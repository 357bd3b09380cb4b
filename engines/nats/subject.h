// Subjects that records have, and what else is kept under subjects (docs/shipping-nats.md).
#ifndef ENGINES_NATS_SUBJECT_H
#define ENGINES_NATS_SUBJECT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/ship/shipped_record.h"

// The text as one token, whatever bytes it has: letters, digits, "-" and "_" stand for themselves,
// other bytes are written %2E. What comes to more than 128 characters is cut, and goes on with "%~"
// and a hash of the text; no text at all is "%".
std::string nats_token(std::string_view text);

// The text that a token is; nothing for one that was cut, and for what is no token.
std::optional<std::string> nats_token_text(std::string_view token);

// Names and subjects of a stream called NAME: records under "NAME.HOST.EVENT.LEVEL" in small
// letters, what is known of them in the stream NAME_STATE, under "NAME-state.>".
class nats_subjects {
 public:
  // Raises engine_error, with the address at its begin, for a name that no stream can have.
  nats_subjects(const std::string& address, const std::string& stream);

  const std::string& records_stream() const { return stream_; }
  const std::string& state_stream() const { return state_stream_; }
  const std::string& begin() const { return prefix_; }  // of every subject
  std::string all_records() const { return prefix_ + ".*.*.*"; }
  std::string all_states() const { return prefix_ + "-state.>"; }

  // Tokens, or "*".
  std::string records_of(std::string_view host, std::string_view event,
                         std::string_view level) const;
  std::string record(std::string_view host, const shipped_record& record) const;

  std::string positions(const journal_identity& journal) const;  // all of them
  std::string position(const journal_identity& journal, const segment_position& position) const;
  std::string all_positions() const { return prefix_ + "-state.position.>"; }
  std::string told(const journal_identity& journal) const;
  std::string all_told() const { return prefix_ + "-state.told.>"; }
  std::string kit_part(const std::string& hash, size_t part) const;
  std::string kit_parts(const std::string& hash) const;
  std::string kit_end(const std::string& hash) const;  // says how many parts there are
  std::string kit_use(const journal_identity& journal, const std::string& hash) const;
  std::string kit_uses() const { return prefix_ + "-state.uses.>"; }

 private:
  std::string stream_;
  std::string state_stream_;
  std::string prefix_;
};

#endif
