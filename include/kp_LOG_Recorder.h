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

// Empty texts stand for what is not wanted. Paths are made absolute when the recorder is made.
struct kp_LOG_RecorderOptions {
  std::string definitions;  // the compiled STD file
  std::string aux;          // the compiled AUX file
  std::string catalog;      // the folder of the message catalog
  std::string locale;       // of the messages; empty: that of the environment
  std::string code_page;    // of the text logs; empty: UTF-8

  // The outputs, of which there is one at least: dated text logs DIR/PREFIX, a file of the stored
  // form, a counter file DIR/NAME.
  std::string text;
  std::string json;
  std::string count;
  std::uint64_t max_size = 0;  // bytes of a text log; 0: 64 MiB
  bool synced = false;         // batches are on the disk itself when they count as written

  // A settings file and its section for the filter; without it every event passes.
  std::string settings;
  std::string section;

  std::string ring_folder;                           // empty: that of the first output
  std::uint64_t ring_size = std::uint64_t{4} << 20;  // bytes, from 512 KiB to 4 GiB
  kp_LOG_WhenFull when_full = kp_LOG_WhenFull::wait;
  std::chrono::milliseconds wait{100};  // at most, for room in the ring

  // Called by the recorder's thread, for each kind at most once a minute. What it raises is
  // dropped.
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

struct _kp_LOG_event_room;
// Of an event in parts: goes on in the next block where one is full.
KP_API void _kp_LOG_recorder_put_part(_kp_LOG_event_room& room, const void* bytes,
                                      std::size_t size) noexcept;

// Room for one event in a block of the ring.
struct _kp_LOG_event_room {
  void put(const void* bytes, std::size_t size) noexcept {
    if (size == 0) return;
    if (static_cast<std::size_t>(end - at) >= size) {
      std::memcpy(at, bytes, size);
      at += size;
    } else if (is_in_parts) {
      _kp_LOG_recorder_put_part(*this, bytes, size);
    } else {
      is_overfull = true;
    }
  }

  unsigned char* at = nullptr;  // where the next value goes
  unsigned char* end = nullptr;
  bool is_overfull = false;    // a value did not fit
  bool is_ill_formed = false;  // a text is not UTF-8
  bool is_in_parts = false;    // values go through _kp_LOG_recorder_put_part
  void* lane = nullptr;
  std::uint32_t fingerprint = 0;
  kp_LOG_Recorded answer = kp_LOG_Recorded::recorded;  // of a room that is not open
};

// Whether the room is open. If not, its answer is set; where that is lost_name the event may be
// one of other definitions than the recorder's.
KP_API bool _kp_LOG_recorder_begin(_kp_LOG_recorder_gate& gate, std::uint64_t fingerprint,
                                   unsigned level, _kp_LOG_event_room& room) noexcept;
// Gives a room that was too small, and one for values of that many bytes instead.
KP_API bool _kp_LOG_recorder_begin_again(_kp_LOG_event_room& room, std::size_t size) noexcept;
KP_API kp_LOG_Recorded _kp_LOG_recorder_end(_kp_LOG_event_room& room, std::uint32_t id,
                                            unsigned level) noexcept;
KP_API kp_LOG_Recorded _kp_LOG_recorder_reject(_kp_LOG_recorder_gate& gate) noexcept;
// Makes the entry with the recorder's definitions, and records it.
using _kp_LOG_entry_recorder = kp_LOG_Recorded (*)(_kp_LOG_recorder_gate& gate, unsigned level,
                                                   const void* event);
KP_API kp_LOG_Recorded _kp_LOG_recorder_by_name(_kp_LOG_recorder_gate& gate, unsigned level,
                                                const void* event,
                                                _kp_LOG_entry_recorder record) noexcept;
KP_API kp_LOG_Recorded _kp_LOG_recorder_entry(_kp_LOG_recorder_gate& gate,
                                              const kp_LOG_LogEntry& entry) noexcept;

// Copies the text, cut where it is longer than its type can hold; sees whether it is UTF-8.
KP_API void _kp_LOG_recorder_put_text(_kp_LOG_event_room& room, unsigned number,
                                      kp_AttributeType type, const char* text,
                                      std::size_t size) noexcept;
KP_API void _kp_LOG_recorder_put_time(_kp_LOG_event_room& room, unsigned number,
                                      kp_AttributeType type, const kp_Time& time) noexcept;

// Writes values into a room.
struct _kp_LOG_value_writer {
  _kp_LOG_event_room& room;

  template <class Value>
  void operator()(unsigned number, const Value& value) const noexcept {
    if constexpr (requires { value.text(); }) {
      const std::string_view text = value.text();
      _kp_LOG_recorder_put_text(room, number, Value::type, text.data(), text.size());
    } else if constexpr (requires { value.time(); }) {
      _kp_LOG_recorder_put_time(room, number, Value::type, value.time());
    } else {
      put_number(number, Value::type, value.value());
    }
  }

  template <class Number>
  void put_number(unsigned number, kp_AttributeType type, Number value) const noexcept {
    unsigned char bytes[3 + sizeof value];
    const auto short_number = static_cast<std::uint16_t>(number);
    std::memcpy(bytes, &short_number, sizeof short_number);
    bytes[2] = static_cast<unsigned char>(type);
    std::memcpy(bytes + 3, &value, sizeof value);
    room.put(bytes, sizeof bytes);
  }
};

// Counts the bytes of values.
struct _kp_LOG_value_measure {
  std::size_t& size;

  template <class Value>
  void operator()(unsigned, const Value& value) const noexcept {
    if constexpr (requires { value.text(); })
      size += 5 + longest_text(value.text().size(), Value::type);
    else if constexpr (requires { value.time(); })
      size += 3 + 11;
    else
      size += 3 + sizeof(value.value());
  }

  KP_API static std::size_t longest_text(std::size_t size, kp_AttributeType type) noexcept;
};

// --- The recorder

class KP_API kp_LOG_Recorder {
 public:
  // Opens outputs and ring, brings what is left of others at the place into the outputs, and starts
  // the thread. Changes nothing of kp_LOG_LogConfig. Raises KPX_logging_illegal_argument for
  // options that are missing or wrong, KPX_logging_invalid_definition for definitions that cannot
  // be read, KPX_logging_misc for an output or a ring that cannot be made, each with a text that
  // says what is wrong, and KPX_memory_alloc.
  explicit kp_LOG_Recorder(const kp_LOG_RecorderOptions& options);
  // Closes: writes everything. Where an output still fails after two seconds the ring stays for the
  // next one. Other threads may record meanwhile; once it is closed they are answered lost_closed,
  // as long as the object's memory is there.
  ~kp_LOG_Recorder();
  kp_LOG_Recorder(const kp_LOG_Recorder&) = delete;
  kp_LOG_Recorder& operator=(const kp_LOG_Recorder&) = delete;

  // Any number of threads at once. No lock is taken, and after a thread's first call nothing is
  // allocated. Not from a signal handler.
  template <kp_LOG_recordable Event>
  kp_LOG_Recorded Record(const Event& event) noexcept {
    return Record(Event::default_level, event);
  }
  template <kp_LOG_recordable Event>
  kp_LOG_Recorded Record(unsigned level, const Event& event) noexcept;
  template <class Level, kp_LOG_recordable Event>
  requires std::is_enum_v<Level> kp_LOG_Recorded Record(Level level, const Event& event)
  noexcept { return Record(static_cast<unsigned>(level), event); }
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

template <kp_LOG_recordable Event>
kp_LOG_Recorded kp_LOG_Recorder::Record(unsigned level, const Event& event) noexcept {
  if (!gate_->accepts(level, Event::property_flags)) return _kp_LOG_recorder_reject(*gate_);
  _kp_LOG_event_room room;
  if (!_kp_LOG_recorder_begin(*gate_, Event::fingerprint, level, room)) {
    if (room.answer != kp_LOG_Recorded::lost_name) return room.answer;
    return _kp_LOG_recorder_by_name(*gate_, level, &event, _kp_LOG_record_event_by_name<Event>);
  }
  event.each_value(_kp_LOG_value_writer{room});
  if (room.is_overfull) {
    std::size_t size = 0;
    event.each_value(_kp_LOG_value_measure{size});
    if (!_kp_LOG_recorder_begin_again(room, size)) return room.answer;
    event.each_value(_kp_LOG_value_writer{room});
  }
  return _kp_LOG_recorder_end(room, Event::id, level);
}

#endif
#endif
