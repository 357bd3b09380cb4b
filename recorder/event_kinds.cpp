#include "recorder/event_kinds.h"

#include "recording/definitions/fingerprint.h"
#include "recording/ring/event_bytes.h"

event_kinds::event_kinds(const event_set& events) {
  know_fingerprints(events);
  number_attributes(events);
}

// A header may have been made of fewer attributes than the definitions have: those of an AUX file
// and those of every event come behind an event's own.
void event_kinds::know_fingerprints(const event_set& events) {
  size_t count = 0;
  for (const known_event& event : events.events()) count += event.attributes.size() + 1;
  fingerprints_.resize(hash_table_size(count));
  last_fingerprint_ = fingerprints_.size() - 1;
  for (const known_event& event : events.events()) {
    const uint32_t folded = folded_fingerprint(event);
    event_fingerprint fingerprint(event.id);
    for (size_t number = 0; number <= event.attributes.size(); ++number) {
      size_t place = fingerprint.value() & last_fingerprint_;
      while (fingerprints_[place].is_taken) place = (place + 1) & last_fingerprint_;
      fingerprints_[place] = {fingerprint.value(), folded, true};
      if (number < event.attributes.size())
        fingerprint.add(event.attributes[number].name, event.attributes[number].type);
    }
  }
}

void event_kinds::number_attributes(const event_set& events) {
  numbered_.resize(hash_table_size(events.events().size()));
  last_numbered_ = numbered_.size() - 1;
  for (const known_event& event : events.events()) {
    size_t place = event.id & last_numbered_;
    while (numbered_[place] != nullptr) place = (place + 1) & last_numbered_;
    numbered_[place] = std::make_unique<const numbered_event>(event);
  }
}
