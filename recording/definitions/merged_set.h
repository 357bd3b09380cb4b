// The STD set and an AUX set that adds to it: what the library refuses of the two together, what
// names stand for in either, and both as one, merged as the library merges their files.
#ifndef RECORDING_DEFINITIONS_MERGED_SET_H
#define RECORDING_DEFINITIONS_MERGED_SET_H

#include <string_view>
#include <unordered_map>
#include <vector>

#include "recording/definitions/model.h"
#include "recording/report/diagnostics.h"

// The STD set that an AUX set is loaded beside.
class std_definitions {
 public:
  // The set is complete, and outlives this.
  explicit std_definitions(const definition_set& set);

  const definition_set& set() const { return set_; }
  // The event that one of this ID is merged into, null when there is none.
  const event_model* find(uint32_t id) const;

 private:
  const definition_set& set_;
  std::unordered_map<uint32_t, const event_model*> events_;
};

// The attribute of that name, null when there is none.
const attribute_model* find_attribute(const std::vector<attribute_model>& attributes,
                                      std::string_view name);

// The attribute that selects the event's messages, null when there is none: the library knows a
// selector only by its declaration.
const attribute_model* selector_of(const event_model& event);

// Adds everything for which the library would refuse to load `set` beside `standard`.
void check_against_std(const definition_set& set, const std_definitions& standard,
                       diagnostic_list& found);

// What the names in an event's messages and selector stand for, as the library looks them up.
class attribute_lookup {
 public:
  // `standard` is the STD set that the set is loaded beside, or null. Both outlive this.
  attribute_lookup(const definition_set& set, const std_definitions* standard)
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

// The STD set's events in their order, with what `set` adds to each, and then the events that `set`
// alone has. Of an event of both: the attributes and selector messages of both; the AUX event's
// second word; its property flags where the STD event has none; its default message where that has
// both an ID and a template. An event that `set` alone has keeps its default message as it
// is, also an ID alone, which the library drops from an AUX file. The log version is the STD set's,
// where the library gives every event that of the last file it is in. Of sets that do not go
// together (check_against_std) the result is one that the library refuses.
definition_set merged_set(definition_set standard, const definition_set& set);

#endif
