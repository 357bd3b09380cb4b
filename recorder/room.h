// Events into the ring, as the parts of the recorder share it.
#ifndef RECORDER_ROOM_H
#define RECORDER_ROOM_H

#include "kp_LOG_Recorder.h"
#include "logging/logentry_i.h"
#include "recorder/recorder_state.h"

// What an event is called, beside its ID.
struct event_label {
  unsigned level;
  unsigned message_index = 0;
};

// Begins an event of such values, of which its own time comes first. False with the room's answer
// set.
bool begin_numbered(recorder_lane& lane, const numbered_event& event, size_t size,
                    _kp_LOG_event_room& room) noexcept;
// With `found` other than `recorded` the event is lost for that.
kp_LOG_Recorded end_numbered(_kp_LOG_event_room& room, const numbered_event& event,
                             const event_label& label, kp_LOG_Recorded found) noexcept;

// Records an entry whose message is the selector message of that index, or with 0 the one that the
// selector attribute chooses.
kp_LOG_Recorded record_entry(_kp_LOG_recorder_gate& gate, const kp_LOG_LogEntry& entry,
                             unsigned message_index) noexcept;

// The state that the calling thread records into; null, with the answer set, where the recorder is
// closed.
std::shared_ptr<recorder_state> state_behind(_kp_LOG_recorder_gate& gate,
                                             kp_LOG_Recorded& answer) noexcept;

#endif
