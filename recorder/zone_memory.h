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
  // Sets the zone of the time that the head has.
  void tell(event_head& head) const noexcept;

 private:
  // The number of the quarter, and its offset, as one number.
  static uint64_t asked(uint64_t quarter) noexcept;

  std::atomic<uint64_t> now_ = UINT64_MAX;
  std::atomic<uint64_t> next_ = UINT64_MAX;
};

#endif
