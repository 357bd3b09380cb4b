// Receivers that take records into a pipeline, and keep nothing that kplog reads.
#ifndef ENGINES_COMMON_PIPELINE_ENGINE_H
#define ENGINES_COMMON_PIPELINE_ENGINE_H

#include <string>

#include "engines/common/address.h"
#include "tools/ship/engine.h"

// Such an engine; it is left to store.
class pipeline_engine : public ship_engine {
 public:
  // What of a batch was taken is known while this lives alone: little of it is sent again.
  size_t batch_bytes() const override { return size_t{256} << 10; }
  std::optional<std::vector<segment_position>> positions(const journal_identity&) override {
    return std::nullopt;
  }
  void offer(const record_kit&) override {}
  void tell(const journal_identity&, const journal_state&) override {}
};

// Tells people what holds for many records, the first time: the text that `make_text` returns.
template <class MakeText>
void tell_once(const engine_options& options, bool& is_told, const MakeText& make_text) {
  if (!is_told && options.tell) options.tell(make_text());
  is_told = true;
}

#endif
