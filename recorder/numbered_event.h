// The numbers that an event's attributes have in the ring, by their names.
#ifndef RECORDER_NUMBERED_EVENT_H
#define RECORDER_NUMBERED_EVENT_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "recording/records/event_set.h"

struct numbered_name {
  uint32_t hash = 0;  // KP_text_hash of the name
  uint16_t number = 0;
  uint8_t type = 0;
  const known_attribute* attribute = nullptr;  // null: the place is free
};

class numbered_event {
 public:
  explicit numbered_event(const known_event& event);

  uint32_t folded() const { return folded_; }  // folded_fingerprint
  // Null where entries of the event may not carry the attribute.
  const numbered_name* find(uint32_t hash, std::string_view name) const noexcept {
    const size_t last = names_.size() - 1;
    for (size_t place = hash & last; names_[place].attribute != nullptr; place = (place + 1) & last)
      if (names_[place].hash == hash && names_[place].attribute->name == name)
        return &names_[place];
    return nullptr;
  }

 private:
  uint32_t folded_;
  std::vector<numbered_name> names_;  // a table, by the hash
};

#endif
