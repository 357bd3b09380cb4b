// A counter file's record as bytes. The layout: docs/counter-file.md.
#ifndef KP_LOG_COUNTER_FORMAT_H
#define KP_LOG_COUNTER_FORMAT_H

#include <cstdint>
#include <cstring>

#include "base/kp_endian.h"
#include "kp_LOG_EntryCounter.h"

constexpr unsigned kp_counter_record_size = 32;
constexpr unsigned kp_counter_key_offset = 4;  // year, month, day, entry ID
constexpr unsigned kp_counter_key_size = 16;
constexpr unsigned kp_counter_date_size = 12;  // the first three fields of the key
constexpr unsigned kp_counter_count_offset = 20;
constexpr unsigned kp_counter_reserved_offset = 24;

inline uint32_t kp_counter_get_count(const void* record) noexcept {
  return KP_get_big_endian<uint32_t>(static_cast<const char*>(record) + kp_counter_count_offset);
}

inline void kp_counter_put_count(void* record, uint32_t count) noexcept {
  KP_put_big_endian(static_cast<char*>(record) + kp_counter_count_offset, count);
}

inline void kp_counter_encode(const _kp_LOG_EntryCounterElement& element, void* record) noexcept {
  char* const bytes = static_cast<char*>(record);
  KP_put_big_endian(bytes, element.length);
  KP_put_big_endian(bytes + 4, static_cast<uint32_t>(element.year));
  KP_put_big_endian(bytes + 8, static_cast<uint32_t>(element.month));
  KP_put_big_endian(bytes + 12, static_cast<uint32_t>(element.day));
  KP_put_big_endian(bytes + 16, static_cast<uint32_t>(element.entry_id));
  kp_counter_put_count(bytes, element.count);
  std::memcpy(bytes + kp_counter_reserved_offset, element.reserved, sizeof element.reserved);
}

inline void kp_counter_decode(const void* record, _kp_LOG_EntryCounterElement& element) noexcept {
  const char* const bytes = static_cast<const char*>(record);
  element.length = KP_get_big_endian<uint32_t>(bytes);
  element.year = static_cast<int32_t>(KP_get_big_endian<uint32_t>(bytes + 4));
  element.month = static_cast<int32_t>(KP_get_big_endian<uint32_t>(bytes + 8));
  element.day = static_cast<int32_t>(KP_get_big_endian<uint32_t>(bytes + 12));
  element.entry_id = static_cast<int32_t>(KP_get_big_endian<uint32_t>(bytes + 16));
  element.count = kp_counter_get_count(bytes);
  std::memcpy(element.reserved, bytes + kp_counter_reserved_offset, sizeof element.reserved);
}

#endif
