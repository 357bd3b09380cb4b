// What records call events: by the ID of their default message (docs/records.md).
#ifndef RECORDING_RECORDS_NAMES_H
#define RECORDING_RECORDS_NAMES_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "recording/definitions/model.h"
#include "recording/definitions/standard_set.h"

// The names of a set's events, together with those of the STD set that it adds to, if any.
class record_names {
 public:
  record_names(const definition_set& set, const std_definitions* standard);

  // Empty for an ID that the sets do not have, and for an event without a name.
  const std::string& of(uint32_t id) const;
  // What sources call the events of that name.
  const std::vector<std::string>& owners(const std::string& name) const;

 private:
  void add(const event_model& event);

  std::unordered_map<uint32_t, std::string> names_;
  std::unordered_map<std::string, std::vector<std::string>> owners_;
};

#endif
