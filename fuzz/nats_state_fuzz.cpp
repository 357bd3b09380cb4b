// Any bytes as what JetStream keeps beside records, how far journals are and what their senders
// told: what is read of it is written as it was.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "engines/nats/state.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void require(bool holds) {
  if (!holds) std::abort();
}

static void check_position(std::string_view text) {
  const auto read = nats_position_of(text);
  if (!read) return;
  const std::string written = nats_text_of(*read);
  const auto again = nats_position_of(written);
  require(again.has_value());
  require(again->journal == read->journal && again->position.segment == read->position.segment &&
          again->position.first == read->position.first &&
          again->position.extent == read->position.extent);
  require(again->records == read->records && again->newest == read->newest &&
          again->created == read->created && again->stored.sequence == read->stored.sequence &&
          again->stored.id == read->stored.id);
  require(nats_text_of(*again) == written);
}

static void check_told_state(std::string_view text) {
  const auto read = nats_told_state_of(text);
  if (!read) return;
  const std::string written = nats_text_of(*read);
  const auto again = nats_told_state_of(written);
  require(again.has_value());
  require(again->journal == read->journal &&
          again->state.waiting_bytes == read->state.waiting_bytes &&
          again->state.given_up == read->state.given_up &&
          again->state.is_given_up_exact == read->state.is_given_up_exact);
  require(nats_text_of(*again) == written);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  check_position(text);
  check_told_state(text);
  return 0;
}
