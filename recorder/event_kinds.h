// The kinds of events that a recorder's definitions have, as calls look for them.
#ifndef RECORDER_EVENT_KINDS_H
#define RECORDER_EVENT_KINDS_H

#include <cstdint>
#include <memory>
#include <vector>

#include "recorder/numbered_event.h"
#include "recording/records/event_set.h"

class event_kinds {
 public:
  // The events outlive it.
  explicit event_kinds(const event_set& events);

  struct known_fingerprint {
    uint64_t fingerprint = 0;  // of the first attributes that an entry of the event may carry
    uint32_t folded = 0;       // of all of them
    bool is_taken = false;
  };
  // Null where the definitions have no event of that kind.
  const known_fingerprint* find(uint64_t fingerprint) const noexcept {
    size_t place = fingerprint & last_fingerprint_;
    while (fingerprints_[place].fingerprint != fingerprint && fingerprints_[place].is_taken)
      place = (place + 1) & last_fingerprint_;
    return fingerprints_[place].is_taken ? &fingerprints_[place] : nullptr;
  }
  const numbered_event* find_event(uint32_t id) const noexcept {
    for (size_t place = id & last_numbered_;; place = (place + 1) & last_numbered_) {
      const numbered_event* const event = numbered_[place].get();
      if (event == nullptr || event->id() == id) return event;
    }
  }

 private:
  void know_fingerprints(const event_set& events);
  void number_attributes(const event_set& events);

  std::vector<known_fingerprint> fingerprints_;                  // a table, by the fingerprint
  size_t last_fingerprint_ = 0;                                  // place of the table
  std::vector<std::unique_ptr<const numbered_event>> numbered_;  // a table, by the ID
  size_t last_numbered_ = 0;
};

#endif
