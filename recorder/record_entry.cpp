// Entries into the ring: what an entry holds, by the numbers that its names have in the recorder's
// definitions.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "kp_LOG_LogConfig.h"
#include "kp_LOG_errors.h"
#include "logging/attr_value.h"
#include "logging/attribute_store.h"
#include "logging/logentry_i.h"
#include "recorder/put_event.h"
#include "recorder/room.h"
#include "recorder/value_bytes.h"
#include "recording/definitions/built_in_attributes.h"

// ---- texts ----

static bool is_utf8_page() {
  const char* const page = kp_LOG_LogConfig::GetCodePage();
  return page != nullptr && (std::strcmp(page, "UTF-8") == 0 || std::strcmp(page, "utf-8") == 0);
}

// Texts of an entry are in the code page that the library is set to.
static bool is_taken_as_it_is(std::string_view text) {
  return is_ascii(text) || is_utf8_page();
}

// Apart, for its room on the stack.
[[gnu::noinline]] static void put_converted_text(_kp_LOG_event_room& room,
                                                 _kp_LOG_value_label label,
                                                 std::string_view text) noexcept {
  static constexpr unsigned most = 32 * 1024;  // of the longest text, in any code page
  char converted[most + 1];
  unsigned length = most;
  try {
    if (kp_LOG_LogEntry::ConvertToUTF8(text.data(), converted, length,
                                       kp_LOG_LogConfig::GetCodePage()))
      return _kp_LOG_recorder_put_text(room, label, converted, length);
  } catch (const kp_EXCEPTION_base&) {  // no memory for a converter
  }
  room.is_ill_formed = true;
}

// ---- where values go ----

// Gives the end for a text that has to be converted.
[[gnu::noinline]] static unsigned char* put_other_text(unsigned char* at, unsigned char* end,
                                                       _kp_LOG_value_label label,
                                                       std::string_view text,
                                                       size_t most) noexcept {
  return is_taken_as_it_is(text) ? put_any_text(at, end, label, text.data(), text.size(), most)
                                 : end;
}

// With its label.
static constexpr size_t most_of_a_number = _kp_LOG_value_label::size + sizeof(double);

// On the stack. What is not put at once ends all: then the entry goes into a room.
struct entry_on_stack {
  template <class Number>
  void number(_kp_LOG_value_label label, Number value) noexcept {
    if (at < end) at = _kp_LOG_put_number(at, label, value);
  }
  void time(_kp_LOG_value_label label, const kp_Time& time) noexcept {
    at = _kp_LOG_put_time(at, end, label, time);
  }
  [[gnu::always_inline]] void text(_kp_LOG_value_label label, std::string_view text,
                                   size_t most) noexcept {
    unsigned char* const behind = put_ascii(at, end, label, text.data(), text.size(), most);
    at = behind != nullptr ? behind : put_other_text(at, end, label, text, most);
  }
  void own_time(const time_bytes& bytes) noexcept {
    std::memcpy(at, &bytes, sizeof bytes);
    at += sizeof bytes;
  }

  unsigned char* at;
  unsigned char* end;
};

struct entry_in_room {
  template <class Number>
  void number(_kp_LOG_value_label label, Number value) noexcept {
    put(label, &value, sizeof value);
  }
  void time(_kp_LOG_value_label label, const kp_Time& time) noexcept {
    const time_bytes bytes = bytes_of(time);
    put(label, &bytes, sizeof bytes);
  }
  void text(_kp_LOG_value_label label, std::string_view text, size_t) noexcept {
    if (is_taken_as_it_is(text))
      _kp_LOG_recorder_put_text(room, label, text.data(), text.size());
    else
      put_converted_text(room, label, text);
  }
  void own_time(const time_bytes& bytes) noexcept {
    _kp_LOG_recorder_put(room, &bytes, sizeof bytes);
  }
  void put(_kp_LOG_value_label label, const void* value, size_t size) noexcept {
    _kp_LOG_recorder_put(room, &label, _kp_LOG_value_label::size);
    _kp_LOG_recorder_put(room, value, size);
  }

  _kp_LOG_event_room& room;
};

// ---- values ----

template <class Value>
static const Value& held(const _kp_LOG_type_base& value) {
  return static_cast<const _kp_LOG_value_holder<Value>&>(value).value;
}

// Ends with a NUL.
template <class Text>
static std::string_view held_text(const _kp_LOG_type_base& value) {
  const Text& text = held<Text>(value);
  return {text.c_str(), text.length()};
}

static bool is_text(kp_AttributeType type) {
  return type >= TypeChar32 && type <= TypeMBChar2K;
}

static std::string_view text_of(const _kp_LOG_type_base& value) {
  return value.get_type() <= TypeChar2K ? held_text<kp_String>(value)
                                        : held_text<_kp_LOG_ustring>(value);
}

// False for a type that no event can be given.
template <class Place>
[[gnu::always_inline]] static inline bool put_value(Place& to, const numbered_name& known,
                                                    const _kp_LOG_type_base& value) noexcept {
  const auto type = static_cast<kp_AttributeType>(known.type);
  const _kp_LOG_value_label label(known.number, type);
  const auto put_held = [&](kp_AttributeType, const auto& held) __attribute__((always_inline)) {
    using Value = std::decay_t<decltype(held)>;
    if constexpr (std::is_same_v<Value, kp_Time>)
      to.time(label, held);
    else if constexpr (std::is_arithmetic_v<Value>)
      to.number(label, held);
  };
  if (is_text(type)) {
    to.text(label, text_of(value), known.most_bytes);
    return true;
  }
  if (type == TypeGUID) return false;
  switch (type) {
#define KP_LOG_PUT_HELD(code, T)    \
  case code:                        \
    put_held(code, held<T>(value)); \
    return true;
    KP_LOG_EACH_ATTRIBUTE_TYPE(KP_LOG_PUT_HELD)
#undef KP_LOG_PUT_HELD
    default:
      return false;
  }
}

// What the library keeps the zone of the entry's time in, which goes with the time.
static bool is_of_zone(std::string_view name) {
  for (const auto& [zone_name, type] : zone_attributes)
    if (name == zone_name) return true;
  return false;
}

// What is wrong with an attribute that cannot be put; `recorded` where none is.
template <class Place>
[[gnu::always_inline]] static inline kp_LOG_Recorded put_entry(
    Place& to, const numbered_event& event, const _kp_LOG_log_entry_imp& entry) noexcept {
  to.own_time(bytes_of(entry._timestamp()));
  kp_LOG_Recorded found = kp_LOG_Recorded::recorded;
  const numbered_name* next = event.names();  // where entries are filled in the order of their kind
  const auto put = [&](const _kp_LOG_attribute_store::attribute& held)
      __attribute__((always_inline)) {
    const numbered_name* const known =
        next->is_short(held.name) ? next : event.find(held.hash, held.name);
    if (known != nullptr) next = known + 1;
    if (known == nullptr) {
      if (!is_of_zone(held.name.c_str())) found = kp_LOG_Recorded::lost_name;
    } else if (known->type != held.value->get_type() || !put_value(to, *known, *held.value)) {
      found = kp_LOG_Recorded::lost_value;
    }
  };
  entry._attributes().for_each_in_any_order(put);
  return found;
}

// Bytes of a text in the ring, or more: what is converted may grow to four for each.
static size_t most_bytes_of(std::string_view text, kp_AttributeType type) {
  const size_t most = is_taken_as_it_is(text) ? text.size() : 4 * text.size();
  return text_head_size + std::min(most, _kp_LOG_most_text_bytes(type));
}

// Bytes of all that the entry holds, or more.
static size_t most_bytes_of(const _kp_LOG_log_entry_imp& entry) {
  size_t size = sizeof(time_bytes);
  entry._attributes().for_each([&](const _kp_LOG_attribute_store::attribute& held) {
    const auto type = static_cast<kp_AttributeType>(held.value->get_type());
    static constexpr size_t most_of_others = sizeof(value_head) + sizeof(time_bytes);
    size += is_text(type) ? most_bytes_of(text_of(*held.value), type) : most_of_others;
  });
  return size;
}

// ---- the entry ----

// A large entry, or one with texts to be converted.
[[gnu::noinline, gnu::cold]] static kp_LOG_Recorded record_at_length(
    recorder_lane& lane, const numbered_event& event, const event_label& label,
    const _kp_LOG_log_entry_imp& entry) noexcept {
  _kp_LOG_event_room room;
  if (!begin_numbered(lane, event, most_bytes_of(entry), room)) return room.answer;
  entry_in_room place{room};
  const kp_LOG_Recorded found = put_entry(place, event, entry);
  return end_numbered(room, event, label, found);
}

static kp_LOG_Recorded lose(const recorder_lane& lane, kp_LOG_Recorded how) noexcept {
  lane.state->lose(how);
  return how;
}

kp_LOG_Recorded record_entry(_kp_LOG_recorder_gate& gate, const kp_LOG_LogEntry& entry,
                             unsigned message_index) noexcept {
  const _kp_LOG_log_entry_imp& imp = entry._get_imp();
  const event_label label{imp.get_log_level(), message_index};
  if (!gate.accepts(label.level, imp.get_property_mask())) return _kp_LOG_recorder_reject(gate);
  kp_LOG_Recorded answer = kp_LOG_Recorded::lost_closed;
  recorder_lane* const lane = lane_of(whole(gate), answer);
  if (lane == nullptr) return answer;
  const numbered_event* const event = lane->state->kinds().find_event(imp.get_entry_id());
  if (event == nullptr) return lose(*lane, kp_LOG_Recorded::lost_name);
  if (label.level > LOG_LEVEL_HIGH) return lose(*lane, kp_LOG_Recorded::lost_value);
  _kp_LOG_event_values<most_of_a_number> values;
  entry_on_stack place{values.bytes, values.bytes + values.room};
  const kp_LOG_Recorded found = put_entry(place, *event, imp);
  if (place.at >= place.end) return record_at_length(*lane, *event, label, imp);
  if (found != kp_LOG_Recorded::recorded) return lose(*lane, found);
  std::memset(place.at, 0, sizeof(uint64_t));  // filled up: the ring takes whole words
  const uint64_t now = time_now();
  if (!enter(*lane, answer)) return answer;
  return put_event(*lane, now, head_of(event->id(), event->folded(), label, kind_own_time),
                   {values.bytes, static_cast<size_t>(place.at - values.bytes)});
}

kp_LOG_Recorded _kp_LOG_recorder_entry(_kp_LOG_recorder_gate& gate,
                                       const kp_LOG_LogEntry& entry) noexcept {
  return record_entry(gate, entry, 0);
}

kp_LOG_Recorded _kp_LOG_recorder_by_name(_kp_LOG_recorder_gate& gate, unsigned level,
                                         const void* event,
                                         _kp_LOG_entry_recorder record) noexcept {
  kp_LOG_Recorded answer = kp_LOG_Recorded::lost_value;
  const std::shared_ptr<recorder_state> state = state_behind(gate, answer);
  if (state == nullptr) return answer;
  answer = kp_LOG_Recorded::lost_value;
  try {
    const kp_log_own_settings::scope scope(state->settings());
    return record(gate, level, event);
  } catch (const KPX_logging_invalid_attribute_name&) {
    answer = kp_LOG_Recorded::lost_name;
  } catch (const KPX_logging_entry_type_not_found&) {
    answer = kp_LOG_Recorded::lost_name;
  } catch (const KPX_memory_alloc&) {
    answer = kp_LOG_Recorded::lost_memory;
  } catch (const std::exception&) {
  }
  state->lose(answer);
  return answer;
}
