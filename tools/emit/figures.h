// What a run of kplog emit tells of itself: to monitoring, and to those who ask its socket
// (docs/service.md).
#ifndef TOOLS_EMIT_FIGURES_H
#define TOOLS_EMIT_FIGURES_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "recording/records/service.h"
#include "tools/emit/run_report.h"

using figure_time = std::chrono::system_clock::time_point;

// Of what went into the outputs.
struct batch_figures {
  uint64_t input_bytes = 0;  // of the lines of records
  uint64_t batches = 0;      // written
  std::optional<figure_time> last = {};
  std::vector<uint64_t> output_bytes = {};  // by sink
  uint64_t quarantined = 0;                 // bad lines
  uint64_t not_quarantined = 0;             // for want of room
};

// Of outputs that cannot be written.
struct failure_figures {
  uint64_t tries = 0;                               // that failed, so far
  std::optional<figure_time> since = std::nullopt;  // now
  std::string trouble = {};
};

struct emit_figures {
  std::string name;  // of the run: "unix:PATH", or its first sink
  int64_t process = 0;
  figure_time began = {};
  figure_time now = {};
  std::vector<std::string> sinks = {};
  emit_tallies tallies = {};
  batch_figures batches = {};
  failure_figures failures = {};
  std::optional<service_figures> clients = {};
};

// In the text format that Prometheus reads. It is the same for figures that differ in `now` alone.
std::string metrics_text(const emit_figures& figures);

// As an object of JSON on one line: events are those with the most records, at most 100.
std::string status_json(const emit_figures& figures);

#endif
