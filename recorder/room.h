// Room for an event in the ring, as the parts of the recorder share it.
#ifndef RECORDER_ROOM_H
#define RECORDER_ROOM_H

#include "kp_LOG_Recorder.h"
#include "recorder/recorder_state.h"

bool is_ascii(const char* text, size_t size) noexcept;

// What an event is called.
struct event_label {
  uint32_t id;
  unsigned level;
  unsigned message_index = 0;
};

// Opens a room for an event that is known by its ID, and whose own time comes first; null with the
// room's answer set.
const numbered_event* begin_numbered(_kp_LOG_recorder_gate& gate, uint32_t id, unsigned level,
                                     _kp_LOG_event_room& room) noexcept;
void put_own_time(_kp_LOG_event_room& room, const kp_Time& time) noexcept;
// Ends it: with `found` other than `recorded` the event is lost for that.
kp_LOG_Recorded end_numbered(_kp_LOG_event_room& room, const event_label& label,
                             kp_LOG_Recorded found) noexcept;

// Records an entry whose message is the selector message of that index, or with 0 the one that the
// selector attribute chooses.
kp_LOG_Recorded record_entry(_kp_LOG_recorder_gate& gate, const kp_LOG_LogEntry& entry,
                             unsigned message_index) noexcept;

// The state that the calling thread records into; null, with the answer set, where the recorder is
// closed.
std::shared_ptr<recorder_state> state_behind(_kp_LOG_recorder_gate& gate,
                                             kp_LOG_Recorded& answer) noexcept;

#endif
