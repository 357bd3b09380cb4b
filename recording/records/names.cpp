#include "recording/records/names.h"

#include "recording/definitions/merged_set.h"

record_names::record_names(const definition_set& set, const std_definitions* standard) {
  if (standard == nullptr) {
    for (const event_model& event : set.events) add(event);
  } else {
    for (const event_model& event : merged_set(*standard, set).events) add(event);
  }
}

void record_names::add(const event_model& event) {
  const std::string& name = event.message.id.value;
  names_.emplace(event.id.value, name);
  if (!name.empty()) owners_[name].push_back(event.name.value);
}

const std::string& record_names::of(uint32_t id) const {
  static const std::string none;
  const auto name = names_.find(id);
  return name == names_.end() ? none : name->second;
}

const std::vector<std::string>& record_names::owners(const std::string& name) const {
  static const std::vector<std::string> nobody;
  const auto owners = owners_.find(name);
  return owners == owners_.end() ? nobody : owners->second;
}
