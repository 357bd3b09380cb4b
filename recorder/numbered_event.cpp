#include "recorder/numbered_event.h"

#include "base/kp_hash.h"
#include "recording/ring/event_bytes.h"

numbered_event::numbered_event(const known_event& event) : folded_(folded_fingerprint(event)) {
  size_t size = 2;
  while (size < 2 * event.attributes.size()) size *= 2;
  names_.resize(size);
  uint16_t number = 0;
  for (const known_attribute& attribute : event.attributes) {
    const uint32_t hash = KP_text_hash(attribute.name.data(), attribute.name.size());
    size_t place = hash & (size - 1);
    while (names_[place].attribute != nullptr) place = (place + 1) & (size - 1);
    names_[place] = {hash, number++, static_cast<uint8_t>(attribute.type), &attribute};
  }
}
