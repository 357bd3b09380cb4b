// Entries into the ring: what an entry holds, by the numbers that its names have in the recorder's
// definitions.
#include <cstring>
#include <string_view>

#include "kp_LOG_LogConfig.h"
#include "kp_LOG_errors.h"
#include "logging/attr_value.h"
#include "logging/attribute_store.h"
#include "logging/logentry_i.h"
#include "recorder/recorder_state.h"
#include "recorder/room.h"
#include "recording/definitions/built_in_attributes.h"

// ---- texts ----

static bool is_utf8_page() {
  const char* const page = kp_LOG_LogConfig::GetCodePage();
  return page != nullptr && (std::strcmp(page, "UTF-8") == 0 || std::strcmp(page, "utf-8") == 0);
}

// Apart, for its room on the stack.
[[gnu::noinline]] static void put_converted_text(_kp_LOG_event_room& room, unsigned number,
                                                 kp_AttributeType type,
                                                 std::string_view text) noexcept {
  static constexpr unsigned most = 32 * 1024;  // of the longest text, in any code page
  char converted[most + 1];
  unsigned length = most;
  try {
    if (kp_LOG_LogEntry::ConvertToUTF8(text.data(), converted, length,
                                       kp_LOG_LogConfig::GetCodePage()))
      return _kp_LOG_recorder_put_text(room, number, type, converted, length);
  } catch (const kp_EXCEPTION_base&) {  // no memory for a converter
  }
  room.is_ill_formed = true;
}

// Texts of an entry are in the code page that the library is set to.
static void put_entry_text(_kp_LOG_event_room& room, unsigned number, kp_AttributeType type,
                           std::string_view text) noexcept {
  if (is_ascii(text.data(), text.size()) || is_utf8_page())
    _kp_LOG_recorder_put_text(room, number, type, text.data(), text.size());
  else
    put_converted_text(room, number, type, text);
}

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

template <class Number>
static void put_held(_kp_LOG_event_room& room, unsigned number, kp_AttributeType type,
                     const Number& value) noexcept {
  _kp_LOG_value_writer{room}.put_number(number, type, value);
}
static void put_held(_kp_LOG_event_room& room, unsigned number, kp_AttributeType type,
                     const kp_Time& value) noexcept {
  _kp_LOG_recorder_put_time(room, number, type, value);
}
static void put_held(_kp_LOG_event_room& room, unsigned number, kp_AttributeType type,
                     const kp_String& value) noexcept {
  put_entry_text(room, number, type, {value.c_str(), value.length()});
}
static void put_held(_kp_LOG_event_room& room, unsigned number, kp_AttributeType type,
                     const _kp_LOG_ustring& value) noexcept {
  put_entry_text(room, number, type, {value.c_str(), value.length()});
}

// False for a type that no event can be given.
static bool put_value(_kp_LOG_event_room& room, unsigned number,
                      const _kp_LOG_type_base& value) noexcept {
  const unsigned char type = value.get_type();
  if (type == TypeGUID) return false;
  switch (type) {
#define KP_LOG_PUT_HELD(code, T)                  \
  case code:                                      \
    put_held(room, number, code, held<T>(value)); \
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

// What is wrong with the first attribute that cannot be put; `recorded` where none is.
static kp_LOG_Recorded put_attributes(_kp_LOG_event_room& room, const numbered_event& event,
                                      const _kp_LOG_log_entry_imp& entry) noexcept {
  kp_LOG_Recorded found = kp_LOG_Recorded::recorded;
  entry._attributes().for_each([&](const _kp_LOG_attribute_store::attribute& held) {
    const std::string_view name(held.name.c_str(), held.name.length());
    const numbered_name* const known = event.find(held.hash, name);
    if (known == nullptr) {
      if (!is_of_zone(name)) found = kp_LOG_Recorded::lost_name;
    } else if (known->type != held.value->get_type() ||
               !put_value(room, known->number, *held.value)) {
      found = kp_LOG_Recorded::lost_value;
    }
  });
  return found;
}

static kp_LOG_Recorded put_entry(_kp_LOG_event_room& room, const numbered_event& event,
                                 const _kp_LOG_log_entry_imp& entry) noexcept {
  put_own_time(room, entry.get_attrib_time(own_time_attribute.data()));
  return put_attributes(room, event, entry);
}

// Bytes of all that the entry holds, or more.
static size_t most_bytes_of(const _kp_LOG_log_entry_imp& entry) {
  size_t size = sizeof(time_bytes);
  entry._attributes().for_each([&](const _kp_LOG_attribute_store::attribute& held) {
    const auto type = static_cast<kp_AttributeType>(held.value->get_type());
    static constexpr size_t most_of_others = sizeof(value_head) + sizeof(time_bytes);
    if (!is_text(type))
      size += most_of_others;
    else
      size += 5 + _kp_LOG_value_measure::longest_text(4 * text_of(*held.value).size(), type);
  });
  return size;
}

// ---- the entry ----

kp_LOG_Recorded record_entry(_kp_LOG_recorder_gate& gate, const kp_LOG_LogEntry& entry,
                             unsigned message_index) noexcept {
  const _kp_LOG_log_entry_imp& imp = entry._get_imp();
  const unsigned level = imp.get_log_level();
  if (!gate.accepts(level, imp.get_property_mask())) return _kp_LOG_recorder_reject(gate);
  _kp_LOG_event_room room;
  const numbered_event* const event = begin_numbered(gate, imp.get_entry_id(), level, room);
  if (event == nullptr) return room.answer;
  kp_LOG_Recorded found = put_entry(room, *event, imp);
  if (room.is_overfull) {
    if (!_kp_LOG_recorder_begin_again(room, most_bytes_of(imp))) return room.answer;
    found = put_entry(room, *event, imp);
  }
  return end_numbered(room, {imp.get_entry_id(), level, message_index}, found);
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
