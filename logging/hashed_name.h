// Attribute names with what look-ups need of them, computed once.
#ifndef KP_LOG_HASHED_NAME_H
#define KP_LOG_HASHED_NAME_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/kp_hash.h"
#include "base/kp_string.h"
#include "kp_LOG_AttributeKey.h"

// A name of any length, as it is looked up. The text belongs to the caller and outlives this
// object.
struct _kp_LOG_name_key {
  explicit _kp_LOG_name_key(const char* name) noexcept
      : _kp_LOG_name_key(name, std::strlen(name)) {}
  _kp_LOG_name_key(const char* name, size_t length) noexcept
      : text(name), words(name, length), mixed(words.mixed()) {
    // As much of a long one as tells it from any other that people write.
    for (size_t at = 8; at + 8 < std::min<size_t>(length, 256) && length > words.longest; at += 8)
      mixed = (mixed ^ _kp_LOG_name_words(name + at, 8).first) * words.mixer;
  }

  size_t length() const noexcept { return words.length; }
  bool operator==(const _kp_LOG_name_key& other) const noexcept {
    return words == other.words &&
           (length() <= words.longest || std::memcmp(text, other.text, length()) == 0);
  }

  const char* text;
  _kp_LOG_name_words words;
  uint64_t mixed;  // of the words, and of what lies between those of a longer name
};

// A name with its KP_text_hash, by which entries keep their attributes. The text belongs to the
// caller and outlives this object.
struct _kp_LOG_hashed_name {
  explicit _kp_LOG_hashed_name(const char* name) noexcept
      : text(name), length(std::strlen(name)), hash(KP_text_hash(name, length)) {}
  // `known_hash` is the KP_text_hash of `name`.
  _kp_LOG_hashed_name(const kp_String& name, uint32_t known_hash) noexcept
      : text(name.c_str()), length(name.length()), hash(known_hash) {}

  bool operator==(const kp_String& other) const noexcept {
    return other.length() == length && KP_are_same_bytes(other.c_str(), text, length);
  }

  const char* text;
  size_t length;  // may be more than a kp_String holds; such a name equals none
  uint32_t hash;
};

#endif
