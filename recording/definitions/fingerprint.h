// Fingerprints of events: by them a program finds that its header and the definitions that are
// loaded say the same of an event.
#ifndef RECORDING_DEFINITIONS_FINGERPRINT_H
#define RECORDING_DEFINITIONS_FINGERPRINT_H

#include <cstdint>
#include <string_view>

#include "kp_LOG_AttributeType.h"

// The fingerprint of an event's ID and of the names and types of its first attributes, in their
// order: the same for the same ones, on every machine and in every release, since compiled programs
// hold it; for others another one, but once in 2^64.
class event_fingerprint {
 public:
  explicit event_fingerprint(uint32_t id) : value_(mixed(id)) {}

  void add(std::string_view name, kp_AttributeType type);
  uint64_t value() const { return value_; }

 private:
  static constexpr uint64_t mixed(uint64_t word) {
    word = (word ^ (word >> 30)) * 0xBF58476D1CE4E5B9;
    word = (word ^ (word >> 27)) * 0x94D049BB133111EB;
    return word ^ (word >> 31);
  }
  void add_word(uint64_t word) { value_ = mixed(value_ + 0x9E3779B97F4A7C15 + mixed(word)); }

  uint64_t value_;
};

#endif
