// The offset of this machine's zone at a moment, without a call to the C library's clock.
#ifndef RECORDER_ZONE_MEMORY_H
#define RECORDER_ZONE_MEMORY_H

#include <atomic>
#include <cstdint>

#include "recording/ring/ring_format.h"

// Zones change their offsets at full quarters of an hour. The offsets of this quarter and of the
// next are known; any thread may ask, and one renews them.
class zone_memory {
 public:
  // As of the system's zone now. To be called again within a quarter of an hour, and sooner where
  // the zone may have been set.
  void renew(uint64_t nanoseconds) noexcept;
  // The zone at that time.
  event_zone at(uint64_t nanoseconds) const noexcept;
  // When it may have another offset than at that time.
  static uint64_t next_change(uint64_t nanoseconds) noexcept;

 private:
  // The number of the quarter, and its offset, as one number.
  static uint64_t asked(uint64_t quarter) noexcept;

  std::atomic<uint64_t> now_ = UINT64_MAX;
  std::atomic<uint64_t> next_ = UINT64_MAX;
};

#endif
