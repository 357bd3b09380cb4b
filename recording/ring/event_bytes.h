// An event as bytes: an event_head, and behind it the values of its attributes, each as
//
//   two bytes  the attribute's number, among those that known_event has
//   one byte   its type
//   the value  1, 2, 4 or 8 bytes of a number; a text with two bytes before it that tell its size;
//              a time as time_bytes
#ifndef RECORDING_RING_EVENT_BYTES_H
#define RECORDING_RING_EVENT_BYTES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/kp_time.h"
#include "kp_LOG_AttributeKey.h"
#include "recording/records/entry.h"
#include "recording/records/event_set.h"
#include "recording/ring/ring_format.h"
#include "recording/text/line_writer.h"

struct [[gnu::packed]] value_head {
  uint16_t number;
  uint8_t type;  // kp_AttributeType
};

struct [[gnu::packed]] time_bytes {
  uint16_t year;
  uint8_t month, day, hour, minute, second;
  int16_t zone_bias;
  uint8_t daylight, is_gmt;
};

// Why events of that kind were lost, in a word or two.
std::string_view loss_reason(uint32_t kind);

// The first 32 bits of the fingerprint of all that entries of the event may carry.
uint32_t folded_fingerprint(const known_event& event);

// Makes entries of events that are bytes. The library's settings are those of the calling thread.
class event_reader {
 public:
  // What came of an event.
  enum class outcome {
    made,
    another_definition,  // the definitions have no such event, or declare something else for it
    damaged              // the bytes are none of an event
  };

  explicit event_reader(const event_set& events);

  // The entry is in `made()` until the next call. Raises what adding a value raises.
  outcome read(std::string_view bytes);
  made_entry& made() { return made_; }
  const event_head& head() const { return head_; }
  // Of the entry, in the zone of the recording.
  const kp_Time& time() const { return has_own_time_ ? own_time_ : recorded_time_; }
  // "2026-11-15T17:02:56.123456789+08:00": when it was recorded.
  std::string_view recorded() const { return recorded_; }

 private:
  struct prepared_event {
    const known_event* event = nullptr;
    uint32_t fingerprint = 0;
    std::vector<kp_LOG_AttributeKey> keys;  // by number
  };

  const prepared_event* find(uint32_t id);
  bool add_values(std::string_view bytes);
  bool add_value(const kp_LOG_AttributeKey& key, uint8_t type, std::string_view& bytes);
  void set_header();
  bool make_lost(std::string_view bytes);
  void tell_time();
  bool take_own_time(std::string_view& bytes);

  std::unordered_map<uint32_t, prepared_event> prepared_;
  const prepared_event* last_ = nullptr;  // of them, that was read last
  event_head head_ = {};
  made_entry made_;
  line_writer text_;                   // with its NUL
  uint64_t told_second_ = UINT64_MAX;  // of which the next two are
  kp_Time recorded_time_;
  std::string recorded_;
  bool has_own_time_ = false;            // the event that was read
  std::optional<time_bytes> own_bytes_;  // of the last event that had
  kp_Time own_time_;                     // the same
};

#endif
