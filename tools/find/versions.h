// The versions of one product line's definitions that records were made of.
#ifndef TOOLS_FIND_VERSIONS_H
#define TOOLS_FIND_VERSIONS_H

#include <memory>
#include <string>
#include <vector>

#include "logging/own_settings.h"
#include "recording/records/event_set.h"
#include "recording/records/parser.h"

// A set of definitions, and the library set up for it alone.
class definition_version {
 public:
  // Raises as event_set does.
  explicit definition_version(const event_set_options& options);
  ~definition_version();
  definition_version(const definition_version&) = delete;
  definition_version& operator=(const definition_version&) = delete;

  const event_set& events() const { return *events_; }

  // What is done with entries of its events is done within this.
  kp_log_own_settings::scope scope() { return kp_log_own_settings::scope(settings_); }

 private:
  kp_log_own_settings settings_;
  std::unique_ptr<event_set> events_;
};

using definition_versions = std::vector<std::unique_ptr<definition_version>>;

// Those of the files, of which the last is the one of records that tell no version, or none of
// these. Raises as event_set does, and std::invalid_argument for two files of one version.
definition_versions versions_of(const std::vector<std::string>& definitions,
                                event_set_options options);

// The place among them of the one that the record is of.
size_t version_of(const parsed_record& record, const definition_versions& versions);

#endif
