// Brings what recorders that died left in their rings into the outputs.
#ifndef RECORDING_RING_RECOVERY_H
#define RECORDING_RING_RECOVERY_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "recording/ring/ring_delivery.h"

struct recovery_rules {
  // Outputs, by their paths, that a ring may name beside those in its place's own folder.
  std::vector<std::string> known_outputs = {};
  lock_waiting waiting = {};
  // Told, one line each, what was recovered; and what was not, and why.
  ring_report report = {};
  ring_report fault = {};
};

struct recovered_events {
  uint64_t rings = 0;      // that were taken
  uint64_t recovered = 0;  // events that are in every output now
  uint64_t staying = 0;    // events whose definitions are gone, or others
  uint64_t damaged = 0;    // frames that were passed over
  uint64_t failures = 0;   // rings that could not be read, or not to their ends
  uint64_t in_use = 0;     // rings whose owners live
};

// Takes the rings "STEM.ring.…" whose owners are gone, one after the other. A ring is removed when
// every event is in every output; what fails is told, and left for the next one. Raises file_error
// where the folder cannot be read.
recovered_events recover_rings(const std::string& stem, const recovery_rules& rules);

// The path as rings have it: absolute, without "." and "..".
std::string absolute_path(const std::string& path);

#endif
