#include "recording/ring/loss_event.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "base/kp_time.h"

static constexpr uint32_t loss_lane = 0;
static constexpr uint8_t loss_level = 3;

std::vector<lost_bytes> losses_to_tell(const ring_file& ring) {
  std::vector<lost_bytes> losses;
  for (uint32_t kind = 0; kind < ring_loss_kinds; ++kind) {
    const uint64_t total = ring_load(ring.head().lost[kind]);
    const uint64_t told = ring.head().told[kind];
    if (total <= told) continue;
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(total - told, UINT32_MAX));
    losses.push_back({kind, count, told + count});
  }
  return losses;
}

static event_head head_of_now() {
  const auto now = std::chrono::system_clock::now();
  const kp_Time time(now);
  event_head head{};
  head.time = static_cast<uint64_t>(std::chrono::nanoseconds(now.time_since_epoch()).count());
  head.zone.bias = time.get_zone_bias();
  head.zone.daylight = time.get_daylight_flag() != 0 ? 1 : 0;
  head.level = loss_level;
  head.kind = kind_lost;
  return head;
}

std::vector<ring_event> put_losses(ring_file& ring, block_head& block,
                                   const std::vector<lost_bytes>& losses) {
  const auto place =
      reinterpret_cast<unsigned char*>(&block) - reinterpret_cast<unsigned char*>(&ring.block(0));
  ring_store(block.used, uint32_t{0});
  block.lane = loss_lane;
  block.serial = static_cast<uint32_t>(static_cast<size_t>(place) / ring_block_size) + 1;
  block.thread = 0;
  const event_head head = head_of_now();
  for (const lost_bytes& lost : losses) {
    auto* const bytes = reinterpret_cast<unsigned char*>(&block + 1) + block.used;
    auto& frame = *reinterpret_cast<frame_head*>(bytes);
    frame.event_size = sizeof head + sizeof lost;
    frame.size = static_cast<uint32_t>(framed_size(frame.event_size));
    frame.part = frame_part::whole;
    frame.sequence = 0;
    std::memcpy(&frame + 1, &head, sizeof head);
    std::memcpy(bytes + sizeof frame + sizeof head, &lost, sizeof lost);
    frame.sum = sum_of(block, frame);
    ring_store(block.used, block.used + frame.size);
  }
  std::vector<ring_event> events;
  lane_reader().read(block, 0, events);
  return events;
}

void note_told(ring_file& ring, const ring_event& event) {
  lost_bytes lost{};
  if (event.bytes.size() < sizeof(event_head) + sizeof lost) return;
  std::memcpy(&lost, event.bytes.data() + sizeof(event_head), sizeof lost);
  if (lost.kind >= ring_loss_kinds) return;
  uint64_t& told = ring.head().told[lost.kind];
  ring_store(told, std::max(told, lost.total));
}
