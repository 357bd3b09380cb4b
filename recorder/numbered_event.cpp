#include "recorder/numbered_event.h"

#include <cstring>

#include "base/kp_hash.h"
#include "kp_LOG_Recorder.h"
#include "recording/ring/event_bytes.h"

static void make_short(numbered_name& made) {
  std::memcpy(&made.words, made.name, made.length);
  made.masks = {};
  std::memset(&made.masks, 0xff, made.length + 1);
}

numbered_event::numbered_event(const known_event& event)
    : id_(event.id),
      folded_(folded_fingerprint(event)),
      names_(event.attributes.size() + 1),
      last_(hash_table_size(event.attributes.size()) - 1),
      places_(last_ + 1, free_place) {
  uint16_t number = 0;
  for (const known_attribute& attribute : event.attributes) {
    const std::string& name = attribute.name;
    const uint32_t hash = KP_text_hash(name.data(), name.size());
    names_[number] = {name.c_str(),
                      static_cast<uint32_t>(name.size()),
                      hash,
                      number,
                      static_cast<uint8_t>(attribute.type),
                      static_cast<uint32_t>(_kp_LOG_most_text_bytes(attribute.type))};
    if (name.size() <= numbered_name::longest) make_short(names_[number]);
    size_t place = hash & last_;
    while (places_[place] != free_place) place = (place + 1) & last_;
    places_[place] = number++;
  }
}
