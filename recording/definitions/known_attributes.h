// What the names in an event's messages and selector stand for, as the library looks them up.
#ifndef RECORDING_DEFINITIONS_KNOWN_ATTRIBUTES_H
#define RECORDING_DEFINITIONS_KNOWN_ATTRIBUTES_H

#include <string_view>
#include <vector>

#include "recording/definitions/model.h"
#include "recording/definitions/standard_set.h"

class known_attributes {
 public:
  // `standard` is the STD set that the set is loaded beside, or null. Both outlive this.
  known_attributes(const definition_set& set, const std_definitions* standard)
      : set_(set), standard_(standard) {}

  // The STD event that the event is merged into, or null.
  const event_model* standard_event(const event_model& event) const {
    return standard_ == nullptr ? nullptr : standard_->find(event.id.value);
  }

  // The attribute of that name: the event's own, that of the STD event, a global one; or null.
  const attribute_model* declared(const event_model& event, std::string_view name) const;

  // The type of what a message of the event may name: "TIMESTAMP", and what is declared.
  // TypeUnknown for other names, and for the fields that the library shows as MBChar types only
  // where they are declared otherwise.
  kp_AttributeType type_of(const event_model& event, std::string_view name) const;
  // The same without the fields that every entry knows: what an entry of the event can be given.
  kp_AttributeType declared_type(const event_model& event, std::string_view name) const;
  // All names that type_of knows but those of the fields of lesser use, for hints.
  std::vector<std::string_view> names(const event_model& event) const;

  // The attribute that selects the event's messages, or null. An event that adds to an STD event
  // has the latter's selector.
  const attribute_model* selector(const event_model& event) const;

 private:
  // In the order in which the library looks.
  std::vector<const std::vector<attribute_model>*> lists(const event_model& event) const;

  const definition_set& set_;
  const std_definitions* standard_;
};

#endif
