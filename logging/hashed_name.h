// _kp_LOG_hashed_name: an attribute name with what every look-up needs of it, computed once.
#ifndef KP_LOG_HASHED_NAME_H
#define KP_LOG_HASHED_NAME_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/kp_hash.h"
#include "base/kp_string.h"
#include "kp_LOG_AttributeKey.h"

// The text belongs to the caller and outlives this object.
struct _kp_LOG_hashed_name {
  explicit _kp_LOG_hashed_name(const char* name) noexcept
      : text(name), length(std::strlen(name)), hash(KP_text_hash(name, length)) {}
  // `known_hash` is the KP_text_hash of `name`.
  _kp_LOG_hashed_name(const kp_String& name, uint32_t known_hash) noexcept
      : text(name.c_str()), length(name.length()), hash(known_hash) {}
  explicit _kp_LOG_hashed_name(const kp_LOG_AttributeKey& key) noexcept
      : text(key.name()), length(key.length()), hash(key.hash()) {}

  bool operator==(const kp_String& other) const noexcept {
    return other.length() == length && KP_are_same_bytes(other.c_str(), text, length);
  }

  const char* text;
  size_t length;  // may be more than a kp_String holds; such a name equals none
  uint32_t hash;  // the bucket's in an entry's store, the attribute's in a definition
};

#endif
