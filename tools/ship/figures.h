// What a run of kplog ship tells of itself.
#ifndef TOOLS_SHIP_FIGURES_H
#define TOOLS_SHIP_FIGURES_H

#include <chrono>
#include <optional>
#include <string>

#include "tools/ship/engine.h"
#include "tools/ship/shipping.h"

struct ship_figures {
  std::string name;  // of the run: the journal
  std::string to;    // the engine's address
  std::chrono::system_clock::time_point began = {};
  ship_tally tally = {};
  journal_state state = {};
  uint64_t failures = 0;  // tries that failed
  std::optional<std::chrono::system_clock::time_point> failing_since = {};
};

// In the text format that Prometheus reads.
std::string metrics_text(const ship_figures& figures);

// For people: "108000 records: 107998 stored, 2 bad".
std::string summary_text(const ship_tally& tally);

#endif
