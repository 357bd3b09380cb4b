// kp_LOG_Recorder: records events, so that they outlive the process (docs/recorder.md).
//
//   kp_LOG_Recorder log({.definitions = "events.ldf", .text = "/var/log/shop/shop"});
//   log.Record(events::ORDER_PAID{.ORDER = 7, .CUSTOMER = "Zoë", .AMOUNT = 1234.5});
//
// An event goes as bytes into a ring, a file that is mapped into memory; a thread of the recorder
// makes lines of what is there and appends them to the outputs. What a call has answered
// "recorded" comes into every output, once, also when the process is killed: then the next
// recorder or "kplog emit" on the same place, or "kplog recover", brings it there.
//
// The library is libkplogrecord, the CMake target kplog::recorder. C++20 and later; in C++17 this
// header is empty.
#ifndef KP_LOG_RECORDER_H
#define KP_LOG_RECORDER_H

#if __cplusplus >= 202002L

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/kp_export.h"
#include "base/kp_time.h"
#include "kp_LOG_AttributeType.h"
#include "kp_LOG_EventValue.h"
#include "kp_LOG_LogEntry.h"

// What became of an event. The numbers stay.
enum class kp_LOG_Recorded {
  recorded = 0,        // it is in the ring, and comes into the outputs
  rejected = 1,        // the filter does not take it
  lost_full = 2,       // the ring had no room for it, or not in time
  lost_name = 3,       // the definitions have no such event or attribute
  lost_value = 4,      // a level above 9, a value of another type, a text that is not UTF-8
  lost_too_large = 5,  // it has more than 64 KiB
  lost_memory = 6,     // an allocation failed
  lost_closed = 7      // the recorder is closing, or closed
};

// What a call does when the ring has no room.
enum class kp_LOG_WhenFull { wait, lose };

// What a recorder tells of.
enum class kp_LOG_RecorderFault {
  lost,      // events were lost
  output,    // an output cannot be written; it is tried again
  settings,  // the settings file cannot be read; what was read before holds
  recovery,  // what became of rings that others left
  event      // an event cannot be made again of what is in the ring
};

// Empty texts stand for what is not wanted. Paths are made absolute when the recorder is made. Each
// member has an initializer, so that compilers do not warn of those that are left out.
struct kp_LOG_RecorderOptions {
  std::string definitions = {};  // the compiled STD file
  std::string aux = {};          // the compiled AUX file
  std::string catalog = {};      // the folder of the message catalog
  std::string locale = {};       // of the messages; empty: that of the environment
  std::string code_page = {};    // of the text logs; empty: UTF-8

  // The outputs, of which there is one at least: dated text logs DIR/PREFIX, a file of the stored
  // form, a counter file DIR/NAME, a journal DIR/NAME[,max-size=64M][,keep=90d][,keep-size=10G]
  // [,compress=zstd] of the stored form, as "kplog emit --to journal:" has it.
  std::string text = {};
  std::string json = {};
  std::string count = {};
  std::string journal = {};
  std::uint64_t max_size = 0;  // bytes of a text log; 0: 64 MiB
  bool synced = false;         // batches are on the disk itself when they count as written

  // A settings file and its section for the filter; without it every event passes.
  std::string settings = {};
  std::string section = {};

  std::string ring_folder = {};                      // empty: that of the first output
  std::uint64_t ring_size = std::uint64_t{4} << 20;  // bytes, from 512 KiB to 4 GiB
  kp_LOG_WhenFull when_full = kp_LOG_WhenFull::wait;
  std::chrono::milliseconds wait{100};  // at most, for room in the ring

  // Called by the recorder's thread, for each kind at most once a minute. What it raises is
  // dropped. It may record, which waits for no room there; a Flush is false at once. It must not
  // destroy the recorder.
  std::function<void(kp_LOG_RecorderFault kind, const std::string& text)> on_fault = {};
};

// Since the recorder was made.
struct kp_LOG_RecorderStatistics {
  std::uint64_t recorded = 0;  // events that were answered so
  std::uint64_t rejected = 0;
  std::array<std::uint64_t, 8> lost = {};  // by the number of kp_LOG_Recorded
  std::uint64_t waiting = 0;               // recorded, and not in every output yet
  std::uint64_t bytes = 0;                 // of the ring that are in use
};

// An event of a header that "kplog header" wrote.
template <class Event>
concept kp_LOG_recordable = requires {
  Event::id;
  Event::property_flags;
  Event::fingerprint;
  typename Event::entry;
};

// --- The road of an event into the ring. What begins with an underscore is the recorder's own.

// What is asked before an event is looked at: whether the filter takes it.
struct _kp_LOG_recorder_gate {
  static constexpr std::uint32_t debug_flag = 0x04000000;
  static constexpr unsigned plain_levels_shift = 32, debug_levels_shift = 42;
  static constexpr std::uint64_t passes_debug = std::uint64_t{1} << 52;
  static constexpr std::uint64_t passes_plain = std::uint64_t{1} << 53;

  // Bits 0 to 31: the mask of property flags, any of which lets an event pass. From
  // plain_levels_shift on: the levels that pass, from debug_levels_shift on those of events for
  // debugging. Then: whether these pass whatever the mask, and events without flags.
  std::atomic<std::uint64_t> accepted{0};

  bool accepts(unsigned level, std::uint32_t flags) const noexcept {
    const std::uint64_t rule = accepted.load(std::memory_order_relaxed);
    const bool is_debug = (flags & debug_flag) != 0;
    if (level > 9) return true;  // is told what is wrong with it
    if ((rule >> ((is_debug ? debug_levels_shift : plain_levels_shift) + level) & 1) == 0)
      return false;
    return (flags & rule & 0xffffffffu) != 0 || (is_debug && (rule & passes_debug) != 0) ||
           (flags == 0 && (rule & passes_plain) != 0);
  }
};

// What stands before a value: its attribute's number, and its type.
struct _kp_LOG_value_label {
  constexpr _kp_LOG_value_label(unsigned its_number, kp_AttributeType its_type)
      : number(static_cast<std::uint16_t>(its_number)), type(static_cast<std::uint8_t>(its_type)) {}

  static constexpr std::size_t size = 3;  // that is written

  std::uint16_t number;
  std::uint8_t type;
  std::uint8_t behind = 0;  // so that it is written as one word; the value comes over it
};

// Enough for a text of the type, in whatever characters. What is longer is cut.
constexpr std::size_t _kp_LOG_most_text_bytes(kp_AttributeType type) {
  return type >= TypeMBChar32 ? 3 * kp_LOG_longest_text(type) + 4 : kp_LOG_longest_text(type);
}

// Write a value at `at`, and give the place behind it: `end` where it does not come to lie before
// that, and for a text that is not UTF-8.
KP_API unsigned char* _kp_LOG_put_text(unsigned char* at, unsigned char* end,
                                       _kp_LOG_value_label label, const char* text,
                                       std::size_t size, std::size_t most) noexcept;
KP_API unsigned char* _kp_LOG_put_time(unsigned char* at, unsigned char* end,
                                       _kp_LOG_value_label label, const kp_Time& time) noexcept;
// The same, wherever the end is.
template <class Number>
[[gnu::always_inline]] inline unsigned char* _kp_LOG_put_number(unsigned char* at,
                                                                _kp_LOG_value_label label,
                                                                Number value) noexcept {
  std::memcpy(at, &label, sizeof label);
  std::memcpy(at + label.size, &value, sizeof value);
  return at + label.size + sizeof value;
}

// Room for the values of an event, on the stack of the thread that records it.
template <std::size_t room_for_numbers>
struct _kp_LOG_event_values {
  _kp_LOG_event_values() noexcept {}  // NOLINT: the bytes are left as they are

  static constexpr std::size_t room = 512;
  unsigned char bytes[room + room_for_numbers + sizeof(std::uint64_t)];
};

// Writes values behind one another. What goes beyond the end, or is not what it should be, goes by
// _kp_LOG_record_at_length.
struct _kp_LOG_value_writer {
  template <std::size_t room_for_numbers>
  explicit _kp_LOG_value_writer(_kp_LOG_event_values<room_for_numbers>& values) noexcept
      : at(values.bytes), end(values.bytes + values.room) {}

  template <class Value>
  [[gnu::always_inline]] void operator()(unsigned number, const Value& value) noexcept {
    constexpr kp_AttributeType type = Value::type;
    const _kp_LOG_value_label label(number, type);
    if constexpr (requires { value.text(); }) {
      const std::string_view text = value.text();
      at =
          _kp_LOG_put_text(at, end, label, text.data(), text.size(), _kp_LOG_most_text_bytes(type));
    } else if constexpr (requires { value.time(); }) {
      at = _kp_LOG_put_time(at, end, label, value.time());
    } else {
      at = _kp_LOG_put_number(at, label, value.value());
    }
  }

  bool are_whole() const noexcept { return at < end; }
  // The ring takes whole words.
  void fill_up() noexcept { std::memset(at, 0, sizeof(std::uint64_t)); }

  unsigned char* at;  // where the next value goes
  unsigned char* end;
};

// Records an event of such values, filled up. Where it answers lost_name nothing is lost yet: the
// event may be one of other definitions than the recorder's.
KP_API kp_LOG_Recorded _kp_LOG_recorder_record(_kp_LOG_recorder_gate& gate,
                                               std::uint64_t fingerprint, std::uint32_t id,
                                               unsigned level, const unsigned char* values,
                                               std::size_t size) noexcept;
KP_API kp_LOG_Recorded _kp_LOG_recorder_reject(_kp_LOG_recorder_gate& gate) noexcept;
// Makes the entry with the recorder's definitions, and records it.
using _kp_LOG_entry_recorder = kp_LOG_Recorded (*)(_kp_LOG_recorder_gate& gate, unsigned level,
                                                   const void* event);
KP_API kp_LOG_Recorded _kp_LOG_recorder_by_name(_kp_LOG_recorder_gate& gate, unsigned level,
                                                const void* event,
                                                _kp_LOG_entry_recorder record) noexcept;
KP_API kp_LOG_Recorded _kp_LOG_recorder_entry(_kp_LOG_recorder_gate& gate,
                                              const kp_LOG_LogEntry& entry) noexcept;

// Room in the ring for one event whose size is known, in one block or in several.
struct _kp_LOG_event_room {
  template <class Value>
  void operator()(unsigned number, const Value& value) noexcept;

  unsigned char* at = nullptr;  // where the next value goes
  unsigned char* end = nullptr;
  bool is_ill_formed = false;  // a text is not UTF-8
  bool is_overfull = false;    // the values have more bytes than were told
  bool is_in_parts = false;
  void* lane = nullptr;
  std::uint32_t fingerprint = 0;
  kp_LOG_Recorded answer = kp_LOG_Recorded::recorded;  // of a room that is not open
};

// Opens the room for values of that many bytes. If not, its answer is set; for lost_name as above.
KP_API bool _kp_LOG_recorder_begin(_kp_LOG_recorder_gate& gate, std::uint64_t fingerprint,
                                   unsigned level, std::size_t size,
                                   _kp_LOG_event_room& room) noexcept;
KP_API kp_LOG_Recorded _kp_LOG_recorder_end(_kp_LOG_event_room& room, std::uint32_t id,
                                            unsigned level) noexcept;
KP_API void _kp_LOG_recorder_put(_kp_LOG_event_room& room, const void* bytes,
                                 std::size_t size) noexcept;
KP_API void _kp_LOG_recorder_put_text(_kp_LOG_event_room& room, _kp_LOG_value_label label,
                                      const char* text, std::size_t size) noexcept;

template <class Value>
void _kp_LOG_event_room::operator()(unsigned number, const Value& value) noexcept {
  const _kp_LOG_value_label label(number, Value::type);
  unsigned char bytes[32];
  if constexpr (requires { value.text(); }) {
    const std::string_view text = value.text();
    _kp_LOG_recorder_put_text(*this, label, text.data(), text.size());
  } else if constexpr (requires { value.time(); }) {
    const unsigned char* const end_of_value =
        _kp_LOG_put_time(bytes, bytes + sizeof bytes, label, value.time());
    _kp_LOG_recorder_put(*this, bytes, static_cast<std::size_t>(end_of_value - bytes));
  } else {
    const unsigned char* const end_of_value = _kp_LOG_put_number(bytes, label, value.value());
    _kp_LOG_recorder_put(*this, bytes, static_cast<std::size_t>(end_of_value - bytes));
  }
}

// Counts the bytes of values.
struct _kp_LOG_value_measure {
  template <class Value>
  void operator()(unsigned, const Value& value) noexcept {
    size += _kp_LOG_value_label::size;
    if constexpr (requires { value.text(); })
      size += 2 + std::min(value.text().size(), _kp_LOG_most_text_bytes(Value::type));
    else if constexpr (requires { value.time(); })
      size += 11;
    else
      size += sizeof(value.value());
  }

  std::size_t size = 0;
};

// --- The recorder

class KP_API kp_LOG_Recorder {
 public:
  // Opens outputs and ring, brings what is left of others at the place into the outputs, and starts
  // the thread. Changes nothing of kp_LOG_LogConfig. Raises KPX_logging_illegal_argument for
  // options that are missing or wrong, KPX_logging_invalid_definition for definitions that cannot
  // be read, KPX_logging_misc for an output or a ring that cannot be made, or whose lock another
  // process holds for more than five seconds, each with a text that says what is wrong, and
  // KPX_memory_alloc.
  explicit kp_LOG_Recorder(const kp_LOG_RecorderOptions& options);
  // Closes: writes everything. Where an output still fails after two seconds the ring stays for the
  // next one. Other threads may record meanwhile; once it is closed they are answered lost_closed,
  // as long as the object's memory is there.
  ~kp_LOG_Recorder();
  kp_LOG_Recorder(const kp_LOG_Recorder&) = delete;
  kp_LOG_Recorder& operator=(const kp_LOG_Recorder&) = delete;

  // Any number of threads at once. After a thread's first call no lock is taken, and nothing is
  // allocated. Not from a signal handler.
  template <kp_LOG_recordable Event>
  [[gnu::always_inline]] kp_LOG_Recorded Record(const Event& event) noexcept {
    return Record(Event::default_level, event);
  }
  template <kp_LOG_recordable Event>
  kp_LOG_Recorded Record(unsigned level, const Event& event) noexcept;
  template <class Level, kp_LOG_recordable Event>
  requires std::is_enum_v<Level>
  [[gnu::always_inline]] kp_LOG_Recorded Record(Level level, const Event& event) noexcept {
    return Record(static_cast<unsigned>(level), event);
  }
  // Of an entry, made with whatever definitions: its attributes go by their names, its texts by
  // kp_LOG_LogConfig's code page.
  kp_LOG_Recorded Record(const kp_LOG_LogEntry& entry) noexcept {
    return _kp_LOG_recorder_entry(*gate_, entry);
  }

  // Waits until all that was recorded before the call is in every output; false when it is not by
  // then.
  bool Flush(std::chrono::milliseconds patience) noexcept;
  kp_LOG_RecorderStatistics Statistics() const noexcept;

  _kp_LOG_recorder_gate& _gate() const noexcept { return *gate_; }

 private:
  _kp_LOG_recorder_gate* gate_;
};

template <class Event>
kp_LOG_Recorded _kp_LOG_record_event_by_name(_kp_LOG_recorder_gate& gate, unsigned level,
                                             const void* event) {
  return _kp_LOG_recorder_entry(gate,
                                typename Event::entry(level, *static_cast<const Event*>(event)));
}

// These take the event by value, so that what calls them need not have it in memory.

// An event that _kp_LOG_event_values does not take: a large one, or one with a text that is wrong.
template <class Event>
[[gnu::noinline, gnu::cold]] kp_LOG_Recorded _kp_LOG_record_at_length(_kp_LOG_recorder_gate& gate,
                                                                      unsigned level,
                                                                      const Event event) noexcept {
  _kp_LOG_value_measure measure;
  event.each_value(measure);
  _kp_LOG_event_room room;
  if (!_kp_LOG_recorder_begin(gate, Event::fingerprint, level, measure.size, room))
    return room.answer;
  event.each_value(room);
  return _kp_LOG_recorder_end(room, Event::id, level);
}

template <class Event>
[[gnu::noinline, gnu::cold]] kp_LOG_Recorded _kp_LOG_record_by_name(_kp_LOG_recorder_gate& gate,
                                                                    unsigned level,
                                                                    const Event event) noexcept {
  return _kp_LOG_recorder_by_name(gate, level, &event, _kp_LOG_record_event_by_name<Event>);
}

template <kp_LOG_recordable Event>
[[gnu::always_inline]] inline kp_LOG_Recorded kp_LOG_Recorder::Record(unsigned level,
                                                                      const Event& event) noexcept {
  if (!gate_->accepts(level, Event::property_flags)) return _kp_LOG_recorder_reject(*gate_);
  // A number of n bytes takes n + 3, and n or more of the event.
  _kp_LOG_event_values<4 * sizeof event> values;
  _kp_LOG_value_writer writer(values);
  event.each_value(writer);
  kp_LOG_Recorded answer = kp_LOG_Recorded::recorded;
  if (writer.are_whole()) [[likely]] {
    writer.fill_up();
    answer = _kp_LOG_recorder_record(*gate_, Event::fingerprint, Event::id, level, values.bytes,
                                     static_cast<std::size_t>(writer.at - values.bytes));
  } else {
    answer = _kp_LOG_record_at_length(*gate_, level, event);
  }
  if (answer != kp_LOG_Recorded::lost_name) [[likely]]
    return answer;
  return _kp_LOG_record_by_name(*gate_, level, event);
}

#endif
#endif
