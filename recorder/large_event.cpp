// Events of many bytes: their values go into the ring one by one, into one block or into several.
#include <algorithm>
#include <cstring>
#include <utility>

#include "recorder/room.h"
#include "recorder/thread_lane.h"
#include "recorder/value_bytes.h"

static recorder_lane& lane_in(const _kp_LOG_event_room& room) {
  return *static_cast<recorder_lane*>(room.lane);
}

static constexpr size_t heads_size = sizeof(frame_head) + sizeof(event_head);

// ---- the beginning ----

static bool refuse(_kp_LOG_event_room& room, kp_LOG_Recorded answer) noexcept {
  room.answer = leave(lane_in(room), answer);
  return false;
}

static void give_back(recorder_lane& lane, lane_block* blocks) noexcept {
  if (blocks == nullptr) return;
  while (blocks != nullptr) lane.state->give_back(lane, *std::exchange(blocks, blocks->spare));
  lane.state->wake_those_who_wait();
}

// Blocks that nobody sees yet, linked by `spare` in the order of their serials, for an event of
// that many bytes.
static lane_block* take_blocks(recorder_lane& lane, size_t event_size) noexcept {
  lane_block* blocks = nullptr;
  lane_block** end = &blocks;
  for (size_t got = 0; got < event_size; got += ring_block_room - sizeof(frame_head)) {
    *end = lane.state->take_block(lane);
    if (*end == nullptr) {
      give_back(lane, blocks);
      return nullptr;
    }
    end = &(*end)->spare;
  }
  *end = nullptr;
  return blocks;
}

static bool open_in_parts(_kp_LOG_event_room& room, size_t event_size) noexcept {
  recorder_lane& lane = lane_in(room);
  lane.parts = lane.part = take_blocks(lane, event_size);
  if (lane.part == nullptr) return refuse(room, kp_LOG_Recorded::lost_full);
  room.is_in_parts = true;
  room.at = lane.part->frames() + heads_size;
  room.end = lane.part->frames() + ring_block_room;
  return true;
}

static bool open(_kp_LOG_event_room& room, size_t size) noexcept {
  recorder_lane& lane = lane_in(room);
  const size_t event_size = sizeof(event_head) + size;
  if (event_size > largest_event) return refuse(room, kp_LOG_Recorded::lost_too_large);
  if (framed_size(event_size) > ring_block_room) return open_in_parts(room, event_size);
  if (!make_room(lane, framed_size(event_size))) return refuse(room, kp_LOG_Recorded::lost_full);
  room.at = lane.at + heads_size;
  room.end = lane.at + sizeof(frame_head) + event_size;
  return true;
}

bool _kp_LOG_recorder_begin(_kp_LOG_recorder_gate& gate, uint64_t fingerprint, unsigned level,
                            size_t size, _kp_LOG_event_room& room) noexcept {
  recorder_lane* const lane = lane_of(whole(gate), room.answer);
  if (lane == nullptr || !enter(*lane, room.answer)) return false;
  room.lane = lane;
  const auto* const known = known_kind(*lane, fingerprint, level, room.answer);
  if (known == nullptr) return false;
  room.fingerprint = known->folded;
  return open(room, size);
}

bool begin_numbered(recorder_lane& lane, const numbered_event& event, size_t size,
                    _kp_LOG_event_room& room) noexcept {
  if (!enter(lane, room.answer)) return false;
  room.lane = &lane;
  room.fingerprint = event.folded();
  return open(room, size);
}

// ---- values ----

static bool go_on_in_next_block(_kp_LOG_event_room& room) noexcept {
  recorder_lane& lane = lane_in(room);
  if (!room.is_in_parts || lane.part->spare == nullptr) return false;
  lane.part = lane.part->spare;
  room.at = lane.part->frames() + sizeof(frame_head);
  room.end = lane.part->frames() + ring_block_room;
  return true;
}

void _kp_LOG_recorder_put(_kp_LOG_event_room& room, const void* bytes, size_t size) noexcept {
  const auto* from = static_cast<const unsigned char*>(bytes);
  while (size != 0) {
    if (room.at == room.end && !go_on_in_next_block(room)) {
      room.is_overfull = true;
      return;
    }
    const size_t piece = std::min(size, static_cast<size_t>(room.end - room.at));
    std::memcpy(room.at, from, piece);
    room.at += piece;
    from += piece;
    size -= piece;
  }
}

void _kp_LOG_recorder_put_text(_kp_LOG_event_room& room, _kp_LOG_value_label label,
                               const char* text, size_t size) noexcept {
  const size_t most = _kp_LOG_most_text_bytes(static_cast<kp_AttributeType>(label.type));
  const std::string_view kept = cut_text({text, size}, most);
  if (!is_utf8(kept)) room.is_ill_formed = true;
  const auto short_size = static_cast<uint16_t>(kept.size());
  _kp_LOG_recorder_put(room, &label, _kp_LOG_value_label::size);
  _kp_LOG_recorder_put(room, &short_size, sizeof short_size);
  _kp_LOG_recorder_put(room, kept.data(), kept.size());
}

// ---- the end ----

static frame_head& frame_at(unsigned char* at) {
  return *reinterpret_cast<frame_head*>(at);
}

static void finish_frame(const block_head& block, frame_head& frame, size_t event_size,
                         frame_part part) {
  const size_t size = framed_size(event_size);
  std::memset(reinterpret_cast<unsigned char*>(&frame + 1) + event_size, 0,
              size - sizeof frame - event_size);
  frame = {static_cast<uint32_t>(size), static_cast<uint32_t>(event_size), part, 0, 0, 0};
  frame.sum = sum_of(block, frame);
}

static void finish_whole(const _kp_LOG_event_room& room) {
  recorder_lane& lane = lane_in(room);
  frame_head& frame = frame_at(lane.at);
  const auto* const event = reinterpret_cast<unsigned char*>(&frame + 1);
  finish_frame(*lane.last->head, frame, static_cast<size_t>(room.at - event), frame_part::whole);
  count_frame(lane, frame.size);
}

// An event may have come out smaller than it was told to be, and fit into its first block.
static frame_part part_of(bool is_first, bool is_last) {
  if (is_first) return is_last ? frame_part::whole : frame_part::first;
  return is_last ? frame_part::last : frame_part::middle;
}

// The reader sees all of the blocks or none: it gives back what lies before the last one.
static void finish_parts(const _kp_LOG_event_room& room) {
  recorder_lane& lane = lane_in(room);
  lane_block* const last = lane.part;
  for (lane_block* block = lane.parts;; block = block->spare) {
    const bool is_last = block == last;
    frame_head& frame = frame_at(block->frames());
    const size_t size = is_last ? static_cast<size_t>(room.at - block->frames()) : ring_block_room;
    finish_frame(*block->head, frame, size - sizeof frame, part_of(block == lane.parts, is_last));
    ring_store(block->head->used, frame.size);
    if (is_last) break;
    block->next.store(block->spare, std::memory_order_relaxed);
  }
  recorder_state::link(lane, *lane.parts, *last);
  give_back(lane, last->spare);
}

static kp_LOG_Recorded give_up(_kp_LOG_event_room& room, kp_LOG_Recorded how) noexcept {
  recorder_lane& lane = lane_in(room);
  if (room.is_in_parts) give_back(lane, lane.parts);
  return leave(lane, how);
}

static kp_LOG_Recorded end_event(_kp_LOG_event_room& room, event_head head) noexcept {
  if (room.is_ill_formed) return give_up(room, kp_LOG_Recorded::lost_value);
  if (room.is_overfull) return give_up(room, kp_LOG_Recorded::lost_too_large);
  recorder_lane& lane = lane_in(room);
  lane.state->tell_time(lane, time_now(), head);
  frame_head& frame = frame_at(room.is_in_parts ? lane.parts->frames() : lane.at);
  std::memcpy(&frame + 1, &head, sizeof head);
  if (room.is_in_parts)
    finish_parts(room);
  else
    finish_whole(room);
  return finish_event(lane, *lane.state);
}

kp_LOG_Recorded _kp_LOG_recorder_end(_kp_LOG_event_room& room, uint32_t id,
                                     unsigned level) noexcept {
  return end_event(room, head_of(id, room.fingerprint, {level}, kind_event));
}

kp_LOG_Recorded end_numbered(_kp_LOG_event_room& room, const numbered_event& event,
                             const event_label& label, kp_LOG_Recorded found) noexcept {
  if (found != kp_LOG_Recorded::recorded) return give_up(room, found);
  return end_event(room, head_of(event.id(), room.fingerprint, label, kind_own_time));
}
