// Hashes and bucket counts shared by every table of the product line.
#ifndef KP_HASH_H
#define KP_HASH_H

#include <cstddef>
#include <cstdint>

#include "base/kp_export.h"
#include "base/kp_string.h"

// 32-bit hash of the first `length` bytes of `text`; all arithmetic wraps modulo 2^32 and each byte
// enters as a signed 8-bit value.
//   length 0       the hash is 0
//   length 1..15   h = h * 37 + c over every byte
//   length >= 16   h = h * 39 + c over the bytes at 0, step, 2 * step, ... with step = length / 8
// Attribute names in definitions and in entry stores are hashed by this one function, so that an
// operation hashes a name once. `text` may be null when `length` is 0.
constexpr uint32_t KP_text_hash(const char* text, size_t length) noexcept {
  const auto widened = [text](size_t i) {
    return static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(text[i])));
  };
  uint32_t hash = 0;
  if (length < 16) {
    size_t i = 0;
    // Four steps in one: a multiplication waits for the one before it, sums of products do not.
    for (; i + 4 <= length; i += 4)
      hash = hash * (37U * 37U * 37U * 37U) + widened(i) * (37U * 37U * 37U) +
             widened(i + 1) * (37U * 37U) + widened(i + 2) * 37U + widened(i + 3);
    for (; i < length; ++i) hash = hash * 37U + widened(i);
    return hash;
  }
  const size_t step = length / 8;
  for (size_t i = 0; i < length; i += step) hash = hash * 39U + widened(i);
  return hash;
}

// Bucket of `key` among `buckets` (which must not be 0): its KP_text_hash modulo `buckets`.
KP_API unsigned KP_hash(const kp_String& key, unsigned buckets) noexcept;

// Bucket of a number among `buckets` (which must not be 0). Numbers of any stride spread evenly.
KP_API unsigned KP_hash(unsigned key, unsigned buckets) noexcept;

// A bucket count that suits `size` keys, from a fixed table of primes: at least `size` (as far as
// the table reaches), never 0, and idempotent, so that re-creating a table never grows it.
// 3 for 0 to 3, 7 for 4 to 7, 4099 from 8 on, then about doubling.
KP_API unsigned KP_recommended_hash_size(unsigned size) noexcept;

#endif
