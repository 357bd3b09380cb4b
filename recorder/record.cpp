// The road of an event into the ring: nothing here takes a lock or allocates, but what makes a
// thread's lane at its first call.
#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "logging/logentry_i.h"
#include "recorder/process_mark.h"
#include "recorder/recorder_state.h"
#include "recorder/room.h"
#include "recording/definitions/types.h"
#include "recording/ring/event_bytes.h"
#include "recording/text/utf8.h"

// ---- the thread's lanes ----

// Leaves them when the thread ends.
struct thread_lanes {
  ~thread_lanes();

  std::vector<std::shared_ptr<recorder_lane>> lanes;
};

// Of the recorder that the thread used last.
constinit static thread_local recorder_lane* last_lane [[gnu::tls_model("initial-exec")]] = nullptr;
static thread_local thread_lanes own_lanes;
// Whether they are gone: the thread is at its end, and static objects may record yet.
constinit static thread_local bool has_thread_left = false;

thread_lanes::~thread_lanes() {
  has_thread_left = true;
  last_lane = nullptr;
  for (const auto& lane : lanes) lane->is_left.store(true, std::memory_order_release);
}

// In a child of fork: a recorder of its own, with the same options. What the parent's threads were
// doing when it was made, mutexes included, is left as it is.
static void begin_in_child(recorder_gate& gate) noexcept {
  const uint64_t mark = process_mark();
  const uint64_t beginning = mark | (uint64_t{1} << 63);
  uint64_t before = gate.process.load();
  if (before == mark) return;
  if (before != beginning && gate.process.compare_exchange_strong(before, beginning)) {
    new (&gate.mutex) std::mutex;
    recorder_state::abandon(std::move(gate.state));
    if (gate.incarnation.exchange(0) != 0) {
      try {
        gate.state = std::make_shared<recorder_state>(gate, false);
        gate.incarnation.store(gate.state->incarnation());
      } catch (const std::exception&) {  // closed, for the child
      }
    }
    gate.process.store(mark);
  }
  while (gate.process.load() != mark) std::this_thread::yield();
}

static std::shared_ptr<recorder_lane> make_lane(recorder_gate& gate) {
  const std::lock_guard hold(gate.mutex);
  if (gate.state == nullptr) return nullptr;
  return gate.state->make_lane();
}

// Null where the recorder, or the thread, is closed. Raises std::bad_alloc.
static recorder_lane* find_or_make_lane(recorder_gate& gate) {
  if (has_thread_left) return nullptr;
  if (!is_this_process(gate.process.load(std::memory_order_relaxed))) begin_in_child(gate);
  auto& lanes = own_lanes.lanes;
  const uint64_t incarnation = gate.incarnation.load(std::memory_order_acquire);
  if (incarnation == 0) return nullptr;
  for (const auto& lane : lanes)
    if (lane->recorder == incarnation) return last_lane = lane.get();
  std::erase_if(lanes, [](const auto& lane) {
    return lane->current.load(std::memory_order_relaxed) == recorder_lane::closed();
  });
  lanes.reserve(lanes.size() + 1);
  const std::shared_ptr<recorder_lane> lane = make_lane(gate);
  if (lane == nullptr) return nullptr;
  lanes.push_back(lane);
  return last_lane = lane.get();
}

static inline recorder_lane* known_lane(const recorder_gate& gate) noexcept {
  recorder_lane* const lane = last_lane;
  const bool is_its = lane != nullptr &&
                      lane->recorder == gate.incarnation.load(std::memory_order_relaxed) &&
                      is_this_process(gate.process.load(std::memory_order_relaxed));
  return is_its ? lane : nullptr;
}

// Null with the answer set.
static recorder_lane* lane_of(recorder_gate& gate, kp_LOG_Recorded& answer) noexcept {
  if (recorder_lane* const lane = known_lane(gate)) return lane;
  answer = kp_LOG_Recorded::lost_closed;
  try {
    return find_or_make_lane(gate);
  } catch (const std::bad_alloc&) {
    answer = kp_LOG_Recorded::lost_memory;
    return nullptr;
  }
}

// ---- a room ----

static recorder_lane& lane_in(const _kp_LOG_event_room& room) {
  return *static_cast<recorder_lane*>(room.lane);
}

static recorder_state& state_of(const recorder_lane& lane) {
  return *lane.state;
}

static constexpr size_t heads_size = sizeof(frame_head) + sizeof(event_head);
// A block with less room than that is left for another.
static constexpr size_t least_room = heads_size + 32;

static void open_room(_kp_LOG_event_room& room, const lane_block& block) {
  room.at = block.frames() + block.head->used + heads_size;
  room.end = block.frames() + ring_block_room;
}

static bool has_room(const lane_block& block) {
  return ring_block_room - block.head->used >= least_room;
}

// Ends a call that has the lane's block: it is the lane's again.
static kp_LOG_Recorded leave(recorder_lane& lane, kp_LOG_Recorded answer) noexcept {
  if (answer != kp_LOG_Recorded::recorded) state_of(lane).lose(answer);
  lane.current.store(lane.last, std::memory_order_release);
  return answer;
}

static bool refuse(_kp_LOG_event_room& room, kp_LOG_Recorded answer) noexcept {
  room.answer = leave(lane_in(room), answer);
  return false;
}

// Takes the lane's block away for the call. False where the recorder closes; or where the call
// comes within another one of the thread, which then goes on.
static bool enter(recorder_lane& lane, kp_LOG_Recorded& answer) noexcept {
  lane_block* const block = lane.current.exchange(recorder_lane::busy());
  if (block == recorder_lane::closed()) {
    lane.current.store(block);
    answer = kp_LOG_Recorded::lost_closed;
    return false;
  }
  if (block == recorder_lane::busy()) {
    answer = kp_LOG_Recorded::lost_full;
    return false;
  }
  if (block == nullptr) lane.last = nullptr;
  return true;
}

static bool enter(recorder_gate& gate, _kp_LOG_event_room& room) noexcept {
  recorder_lane* const lane = lane_of(gate, room.answer);
  if (lane == nullptr || !enter(*lane, room.answer)) return false;
  room.lane = lane;
  return true;
}

static bool open(_kp_LOG_event_room& room) noexcept {
  recorder_lane& lane = lane_in(room);
  if ((lane.last == nullptr || !has_room(*lane.last)) && !state_of(lane).add_block(lane))
    return refuse(room, kp_LOG_Recorded::lost_full);
  open_room(room, *lane.last);
  return true;
}

bool _kp_LOG_recorder_begin(_kp_LOG_recorder_gate& gate, uint64_t fingerprint, unsigned level,
                            _kp_LOG_event_room& room) noexcept {
  if (!enter(whole(gate), room)) return false;
  if (level > LOG_LEVEL_HIGH) return refuse(room, kp_LOG_Recorded::lost_value);
  recorder_lane& lane = lane_in(room);
  const auto* const known = state_of(lane).find(fingerprint);
  if (known == nullptr) {  // nothing is lost yet
    lane.current.store(lane.last, std::memory_order_release);
    room.answer = kp_LOG_Recorded::lost_name;
    return false;
  }
  room.fingerprint = known->folded;
  return open(room);
}

const numbered_event* begin_numbered(_kp_LOG_recorder_gate& gate, uint32_t id, unsigned level,
                                     _kp_LOG_event_room& room) noexcept {
  if (!enter(whole(gate), room)) return nullptr;
  const numbered_event* const event = state_of(lane_in(room)).find_event(id);
  if (event == nullptr)
    refuse(room, kp_LOG_Recorded::lost_name);
  else if (level > LOG_LEVEL_HIGH)
    refuse(room, kp_LOG_Recorded::lost_value);
  else if (open(room)) {
    room.fingerprint = event->folded();
    return event;
  }
  return nullptr;
}

std::shared_ptr<recorder_state> state_behind(_kp_LOG_recorder_gate& gate,
                                             kp_LOG_Recorded& answer) noexcept {
  const recorder_lane* const lane = lane_of(whole(gate), answer);
  return lane == nullptr ? nullptr : lane->state;
}

// ---- large events ----

static void give_back(recorder_lane& lane, lane_block* blocks) noexcept {
  while (blocks != nullptr) state_of(lane).give_back(lane, *std::exchange(blocks, blocks->spare));
}

// Blocks that nobody sees yet, linked by `spare` in the order of their serials, for an event of
// that many bytes.
static lane_block* take_blocks(recorder_lane& lane, size_t event_size) noexcept {
  lane_block* blocks = nullptr;
  lane_block** end = &blocks;
  for (size_t got = 0; got < event_size; got += ring_block_room - sizeof(frame_head)) {
    *end = state_of(lane).take_block(lane);
    if (*end == nullptr) {
      give_back(lane, blocks);
      return nullptr;
    }
    end = &(*end)->spare;
  }
  *end = nullptr;
  return blocks;
}

bool _kp_LOG_recorder_begin_again(_kp_LOG_event_room& room, size_t size) noexcept {
  recorder_lane& lane = lane_in(room);
  const size_t event_size = sizeof(event_head) + size;
  if (event_size > largest_event) return refuse(room, kp_LOG_Recorded::lost_too_large);
  room.is_overfull = false;
  room.is_ill_formed = false;
  if (framed_size(event_size) <= ring_block_room) {
    if (!state_of(lane).add_block(lane)) return refuse(room, kp_LOG_Recorded::lost_full);
    open_room(room, *lane.last);
    return true;
  }
  lane.parts = lane.part = take_blocks(lane, event_size);
  if (lane.part == nullptr) return refuse(room, kp_LOG_Recorded::lost_full);
  room.is_in_parts = true;
  room.at = lane.part->frames() + heads_size;
  room.end = lane.part->frames() + ring_block_room;
  return true;
}

void _kp_LOG_recorder_put_part(_kp_LOG_event_room& room, const void* bytes, size_t size) noexcept {
  recorder_lane& lane = lane_in(room);
  const auto* from = static_cast<const unsigned char*>(bytes);
  while (size != 0) {
    if (room.at == room.end) {
      lane.part = lane.part->spare;
      room.at = lane.part->frames() + sizeof(frame_head);
      room.end = lane.part->frames() + ring_block_room;
    }
    const size_t piece = std::min(size, static_cast<size_t>(room.end - room.at));
    std::memcpy(room.at, from, piece);
    room.at += piece;
    from += piece;
    size -= piece;
  }
}

// ---- values ----

bool is_ascii(const char* text, size_t size) noexcept {
  uint64_t all = 0;
  uint64_t word = 0;
  for (; size >= sizeof word; size -= sizeof word, text += sizeof word) {
    std::memcpy(&word, text, sizeof word);
    all |= word;
  }
  for (; size != 0; --size) all |= static_cast<unsigned char>(*text++);
  return (all & 0x8080808080808080u) == 0;
}

static bool is_utf8(std::string_view text) {
  for (const utf8_character& character : utf8(text))
    if (!character.valid) return false;
  return true;
}

// Bytes that are enough for what the type holds, however they are encoded.
static size_t most_bytes(kp_AttributeType type) {
  const attribute_type* const row = find_type(type);
  return row->unit == text_unit::byte ? row->longest : 3 * row->longest + 4;
}

size_t _kp_LOG_value_measure::longest_text(size_t size, kp_AttributeType type) noexcept {
  return std::min(size, most_bytes(type));
}

// The text, cut between characters where it is longer than its type can hold.
static std::string_view cut_text(const char* text, size_t size, kp_AttributeType type) {
  const size_t most = most_bytes(type);
  if (size <= most) return {text, size};
  size = most;
  while (size != 0 && (static_cast<unsigned char>(text[size]) & 0xc0) == 0x80) --size;
  return {text, size};
}

void _kp_LOG_recorder_put_text(_kp_LOG_event_room& room, unsigned number, kp_AttributeType type,
                               const char* text, size_t size) noexcept {
  const std::string_view kept = cut_text(text, size, type);
  if (!is_ascii(kept.data(), kept.size()) && !is_utf8(kept)) room.is_ill_formed = true;
  const value_head head{static_cast<uint16_t>(number), static_cast<uint8_t>(type)};
  const auto short_size = static_cast<uint16_t>(kept.size());
  room.put(&head, sizeof head);
  room.put(&short_size, sizeof short_size);
  room.put(kept.data(), kept.size());
}

static time_bytes bytes_of(const kp_Time& time) {
  return {time.get_year(),
          static_cast<uint8_t>(time.get_month()),
          static_cast<uint8_t>(time.get_day()),
          static_cast<uint8_t>(time.get_hour()),
          static_cast<uint8_t>(time.get_minute()),
          static_cast<uint8_t>(time.get_second()),
          time.get_zone_bias(),
          static_cast<uint8_t>(time.get_daylight_flag() != 0),
          static_cast<uint8_t>(time.is_GMT_time_mode())};
}

void _kp_LOG_recorder_put_time(_kp_LOG_event_room& room, unsigned number, kp_AttributeType type,
                               const kp_Time& time) noexcept {
  const value_head head{static_cast<uint16_t>(number), static_cast<uint8_t>(type)};
  const time_bytes bytes = bytes_of(time);
  room.put(&head, sizeof head);
  room.put(&bytes, sizeof bytes);
}

void put_own_time(_kp_LOG_event_room& room, const kp_Time& time) noexcept {
  const time_bytes bytes = bytes_of(time);
  room.put(&bytes, sizeof bytes);
}

// ---- the end of an event ----

static void finish_frame(const block_head& block, frame_head& frame, size_t event_size,
                         frame_part part) {
  frame.event_size = static_cast<uint32_t>(event_size);
  frame.size = static_cast<uint32_t>(framed_size(event_size));
  frame.part = part;
  frame.unused = 0;
  frame.sequence = 0;
  frame.sum = frame_sum(block, frame);
}

static frame_head& frame_at(const lane_block& block, uint32_t offset) {
  return *reinterpret_cast<frame_head*>(block.frames() + offset);
}

// What was written counts from here on.
static void finish_whole(const _kp_LOG_event_room& room) {
  const lane_block& block = *lane_in(room).last;
  frame_head& frame = frame_at(block, block.head->used);
  const auto* const event = reinterpret_cast<unsigned char*>(&frame + 1);
  finish_frame(*block.head, frame, static_cast<size_t>(room.at - event), frame_part::whole);
  ring_store(block.head->used, block.head->used + frame.size);
}

static void finish_parts(const _kp_LOG_event_room& room) {
  recorder_lane& lane = lane_in(room);
  for (lane_block* block = lane.parts; block != nullptr; block = block->spare) {
    const bool is_last = block == lane.part;
    frame_head& frame = frame_at(*block, 0);
    const size_t size = is_last ? static_cast<size_t>(room.at - block->frames()) : ring_block_room;
    const frame_part part = block == lane.parts ? frame_part::first
                            : is_last           ? frame_part::last
                                                : frame_part::middle;
    finish_frame(*block->head, frame, size - sizeof frame, part);
    ring_store(block->head->used, frame.size);
    recorder_state::link(lane, *block);
    if (is_last) return give_back(lane, block->spare);
  }
}

// The head of the event that the room holds.
static event_head& head_in(const _kp_LOG_event_room& room) {
  const recorder_lane& lane = lane_in(room);
  frame_head& frame =
      room.is_in_parts ? frame_at(*lane.parts, 0) : frame_at(*lane.last, lane.last->head->used);
  return *reinterpret_cast<event_head*>(&frame + 1);
}

static kp_LOG_Recorded give_up(_kp_LOG_event_room& room, kp_LOG_Recorded how) noexcept {
  recorder_lane& lane = lane_in(room);
  if (room.is_in_parts) give_back(lane, lane.parts);
  return leave(lane, how);
}

static kp_LOG_Recorded end_event(_kp_LOG_event_room& room, const event_label& label,
                                 event_kind kind) noexcept {
  if (room.is_ill_formed) return give_up(room, kp_LOG_Recorded::lost_value);
  if (room.is_overfull) return give_up(room, kp_LOG_Recorded::lost_too_large);
  recorder_lane& lane = lane_in(room);
  event_head& head = head_in(room);
  head.event = label.id;
  head.fingerprint = room.fingerprint;
  head.level = static_cast<uint8_t>(label.level);
  head.message_index = static_cast<uint16_t>(label.message_index);
  head.kind = kind;
  state_of(lane).tell_time(lane, head);
  if (room.is_in_parts)
    finish_parts(room);
  else
    finish_whole(room);
  lane.recorded.store(lane.recorded.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  state_of(lane).wake_writer();
  return leave(lane, kp_LOG_Recorded::recorded);
}

kp_LOG_Recorded _kp_LOG_recorder_end(_kp_LOG_event_room& room, uint32_t id,
                                     unsigned level) noexcept {
  return end_event(room, {id, level}, kind_event);
}

kp_LOG_Recorded end_numbered(_kp_LOG_event_room& room, const event_label& label,
                             kp_LOG_Recorded found) noexcept {
  if (found != kp_LOG_Recorded::recorded) return give_up(room, found);
  return end_event(room, label, kind_own_time);
}

kp_LOG_Recorded _kp_LOG_recorder_reject(_kp_LOG_recorder_gate& gate) noexcept {
  kp_LOG_Recorded answer = kp_LOG_Recorded::rejected;
  recorder_lane* const lane = lane_of(whole(gate), answer);
  if (lane == nullptr) return answer;
  lane->rejected.store(lane->rejected.load(std::memory_order_relaxed) + 1,
                       std::memory_order_relaxed);
  return kp_LOG_Recorded::rejected;
}
