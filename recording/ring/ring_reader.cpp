#include "recording/ring/ring_reader.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

event_head ring_event::head() const {
  event_head head{};
  bytes.copy(reinterpret_cast<char*>(&head), sizeof head);
  return head;
}

static unsigned char* frames_of(block_head& block) {
  return reinterpret_cast<unsigned char*>(&block + 1);
}

// Null where no sound frame stands.
static frame_head* sound_frame(block_head& block, uint32_t at, uint32_t end) {
  if (end - at < sizeof(frame_head)) return nullptr;
  auto* const frame = reinterpret_cast<frame_head*>(frames_of(block) + at);
  const bool is_shaped = frame->event_size <= ring_block_room &&
                         frame->size == framed_size(frame->event_size) && frame->size <= end - at;
  return is_shaped && frame->sum == sum_of(block, *frame) ? frame : nullptr;
}

void lane_reader::drop_begun() {
  if (begun_.frame != nullptr) ++damaged_;
  begun_ = {};
}

// Blocks are given back one after the other: what is left of a lane may begin within an event that
// every output has.
void lane_reader::go_on_with(const block_head& block) {
  if (block.serial != serial_ && block.serial != serial_ + 1) {
    drop_begun();
    is_behind_gap_ = true;
  }
  serial_ = block.serial;
}

void lane_reader::take(const block_head& block, frame_head& frame,
                       std::vector<ring_event>& events) {
  const std::string_view bytes(reinterpret_cast<const char*>(&frame + 1), frame.event_size);
  const bool begins = frame.part == frame_part::whole || frame.part == frame_part::first;
  if (begins) {
    drop_begun();
    is_behind_gap_ = false;
    if (bytes.size() < sizeof(event_head)) {
      ++damaged_;
      return;
    }
    begun_ = {&frame, bytes, block.thread};
    if (frame.part == frame_part::first) begun_.assembled = std::make_unique<std::string>(bytes);
  } else if (begun_.assembled != nullptr) {
    *begun_.assembled += bytes;
    begun_.bytes = *begun_.assembled;
  } else {
    if (!is_behind_gap_) ++damaged_;
    return;
  }
  const bool ends = frame.part == frame_part::whole || frame.part == frame_part::last;
  if (ends) events.push_back(std::exchange(begun_, {}));
}

uint32_t lane_reader::read(block_head& block, uint32_t from, std::vector<ring_event>& events) {
  go_on_with(block);
  const uint32_t used = ring_load(block.used);
  const uint32_t end = std::min<uint32_t>(used, ring_block_room);
  uint32_t at = from;
  while (at < end) {
    frame_head* const frame = sound_frame(block, at, end);
    if (frame == nullptr) {
      ++damaged_;
      begun_ = {};
      return used;
    }
    take(block, *frame, events);
    at += frame->size;
  }
  return used;
}

ring_contents contents_of(const ring_file& ring) {
  std::map<uint32_t, std::map<uint32_t, uint32_t>> lanes;  // their blocks' numbers, by serial
  for (uint32_t number = 0; number < ring.blocks(); ++number) {
    const block_head& block = ring.block(number);
    if (block.used != 0) lanes[block.lane][block.serial] = number;
  }
  ring_contents contents;
  for (const auto& [lane, blocks] : lanes) {
    lane_reader reader;
    for (const auto& [serial, number] : blocks) reader.read(ring.block(number), 0, contents.events);
    contents.damaged += reader.damaged();
  }
  const auto order = [](const ring_event& event) {
    const uint64_t sequence = event.frame->sequence;
    return std::tuple(sequence == 0, sequence, sequence == 0 ? event.head().time : 0);
  };
  std::stable_sort(
      contents.events.begin(), contents.events.end(),
      [&](const ring_event& one, const ring_event& other) { return order(one) < order(other); });
  return contents;
}
