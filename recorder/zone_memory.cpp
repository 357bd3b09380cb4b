#include "recorder/zone_memory.h"

#include <chrono>

#include "base/kp_time.h"

static constexpr uint64_t quarter_length = uint64_t{15} * 60 * 1'000'000'000;
static constexpr unsigned quarter_shift = 24, bias_shift = 8;

uint64_t zone_memory::asked(uint64_t quarter) noexcept {
  const std::chrono::nanoseconds since_1970(static_cast<int64_t>(quarter * quarter_length));
  const kp_Time time{std::chrono::system_clock::time_point(since_1970)};
  return quarter << quarter_shift |
         uint64_t{static_cast<uint16_t>(time.get_zone_bias())} << bias_shift |
         (time.get_daylight_flag() != 0 ? 1 : 0);
}

void zone_memory::renew(uint64_t nanoseconds) noexcept {
  const uint64_t quarter = nanoseconds / quarter_length;
  now_.store(asked(quarter), std::memory_order_relaxed);
  next_.store(asked(quarter + 1), std::memory_order_relaxed);
}

event_zone zone_memory::at(uint64_t nanoseconds) const noexcept {
  const uint64_t quarter = nanoseconds / quarter_length;
  uint64_t known = now_.load(std::memory_order_relaxed);
  if (known >> quarter_shift != quarter) known = next_.load(std::memory_order_relaxed);
  if (known >> quarter_shift != quarter) known = asked(quarter);
  return {static_cast<int16_t>(known >> bias_shift), static_cast<uint8_t>(known & 1), 0};
}

uint64_t zone_memory::next_change(uint64_t nanoseconds) noexcept {
  return (nanoseconds / quarter_length + 1) * quarter_length;
}
