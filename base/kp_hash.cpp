#include "base/kp_hash.h"

#include <algorithm>
#include <iterator>

// The gap behind 7 is deliberate: a table asked for a few dozen keys may come to hold the locations
// of a hundred thousand, and its chains stay short only when it starts with thousands of buckets.
static constexpr unsigned bucket_counts[] = {
    3U,        7U,         4099U,      8209U,      16411U,      32771U,      65537U,      131101U,
    262147U,   524309U,    1048583U,   2097169U,   4194319U,    8388617U,    16777259U,   33554467U,
    67108879U, 134217757U, 268435459U, 536870923U, 1073741827U, 2147483659U, 4294967291U,
};

unsigned KP_hash(const kp_String& key, unsigned buckets) noexcept {
  return KP_text_hash(key.c_str(), key.length()) % buckets;
}

// Every bit of a number moves every bit of the result, one to one: numbers that stand in a row of
// any stride, multiples of the bucket count among them, spread like any others.
static constexpr uint32_t mixed(uint32_t bits) noexcept {
  bits = (bits ^ (bits >> 16)) * 0x7FEB352DU;
  bits = (bits ^ (bits >> 15)) * 0x846CA68BU;
  return bits ^ (bits >> 16);
}

unsigned KP_hash(unsigned key, unsigned buckets) noexcept {
  return mixed(key) % buckets;
}

unsigned KP_recommended_hash_size(unsigned size) noexcept {
  const auto last = std::prev(std::end(bucket_counts));
  return *std::lower_bound(std::begin(bucket_counts), last, size);
}
