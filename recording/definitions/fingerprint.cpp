#include "recording/definitions/fingerprint.h"

// Up to eight bytes, the first one lowest.
static uint64_t fingerprint_word(std::string_view bytes) {
  uint64_t word = 0;
  for (size_t i = 0; i < bytes.size(); ++i)
    word |= uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
  return word;
}

void event_fingerprint::add(std::string_view name, kp_AttributeType type) {
  add_word(uint64_t{name.size()} << 8 | static_cast<unsigned>(type));
  for (size_t i = 0; i < name.size(); i += 8) add_word(fingerprint_word(name.substr(i, 8)));
}
