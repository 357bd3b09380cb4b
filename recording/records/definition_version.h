// Definitions beside others, and the library set up for them alone.
#ifndef RECORDING_RECORDS_DEFINITION_VERSION_H
#define RECORDING_RECORDS_DEFINITION_VERSION_H

#include <memory>

#include "logging/own_settings.h"
#include "recording/records/event_set.h"

// A set of definitions, and the library set up for it alone.
class definition_version {
 public:
  // Raises as event_set does.
  explicit definition_version(const event_set_options& options);
  ~definition_version();
  definition_version(const definition_version&) = delete;
  definition_version& operator=(const definition_version&) = delete;

  const event_set& events() const { return *events_; }

  // What is done with entries of its events is done within this, by any number of threads.
  kp_log_own_settings::scope scope() { return kp_log_own_settings::scope(settings_); }

 private:
  kp_log_own_settings settings_;
  std::unique_ptr<event_set> events_;
};

#endif
