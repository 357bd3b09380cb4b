// The numbers that an event's attributes have in the ring, by their names.
#ifndef RECORDER_NUMBERED_EVENT_H
#define RECORDER_NUMBERED_EVENT_H

#include <array>
#include <cstdint>
#include <vector>

#include "base/kp_string.h"
#include "recording/records/event_set.h"

// Places of a hash table of so many, at most half of which are taken.
constexpr size_t hash_table_size(size_t count) {
  size_t size = 2;
  while (size < 2 * count + 1) size *= 2;
  return size;
}

struct numbered_name {
  static constexpr size_t longest = 15;  // that is compared as two words, with the NUL behind it

  // Of whatever length.
  bool is(const char* other, size_t other_length) const noexcept {
    return other_length == length && KP_are_same_bytes(name, other, length);
  }
  // Sooner, and false for a name that is not found so.
  bool is_short(const kp_String& other) const noexcept {
    if (!other.is_short()) return false;
    const char* const bytes = other.c_str();
    return (((KP_word_at<uint64_t>(bytes) ^ words[0]) & masks[0]) |
            ((KP_word_at<uint64_t>(bytes + 8) ^ words[1]) & masks[1])) == 0;
  }

  const char* name = nullptr;
  uint32_t length = 0;
  uint32_t hash = 0;  // KP_text_hash of the name
  uint16_t number = 0;
  uint8_t type = 0;
  uint32_t most_bytes = 0;  // of a text
  // The bytes of a short name, and which of them count. No name begins with a NUL.
  std::array<uint64_t, 2> words = {}, masks = {UINT64_MAX, 0};
};

class numbered_event {
 public:
  // The event outlives it.
  explicit numbered_event(const known_event& event);

  uint32_t id() const { return id_; }
  uint32_t folded() const { return folded_; }  // folded_fingerprint
  // In the order of their numbers. Behind the last one stands one without a name.
  const numbered_name* names() const noexcept { return names_.data(); }
  // Null where entries of the event may not carry the attribute.
  const numbered_name* find(uint32_t hash, const kp_String& name) const noexcept {
    for (size_t place = hash & last_; places_[place] != free_place; place = (place + 1) & last_) {
      const numbered_name& found = names_[places_[place]];
      if (found.hash == hash && found.is(name.c_str(), name.length())) return &found;
    }
    return nullptr;
  }

 private:
  static constexpr uint16_t free_place = UINT16_MAX;

  uint32_t id_;
  uint32_t folded_;
  std::vector<numbered_name> names_;
  size_t last_;                   // place of the table
  std::vector<uint16_t> places_;  // a table, by the hash: numbers
};

#endif
