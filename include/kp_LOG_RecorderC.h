/* The recorder of kp_LOG_Recorder.h for C, and for every language that calls C. C99 and later. */
#ifndef KP_LOG_RECORDERC_H
#define KP_LOG_RECORDERC_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KP_LOG_C_API __attribute__((visibility("default")))

typedef struct kp_LOG_recorder kp_LOG_recorder;

/* Opens a recorder. The options are a JSON object with the names of kp_LOG_RecorderOptions:
 *
 *   {"definitions": "events.ldf", "text": "/var/log/shop/shop", "when_full": "lose"}
 *
 * Texts, numbers ("max_size", "ring_size"; "wait" in milliseconds), "synced" true or false,
 * "when_full" "wait" or "lose". Null where that fails; kp_LOG_recorder_error() says why. */
KP_LOG_C_API kp_LOG_recorder* kp_LOG_recorder_open(const char* options_as_json);

/* Why the calling thread's last call of kp_LOG_recorder_open failed, or its last record was lost
 * for what stands in it. Valid until that thread's next call; never null. */
KP_LOG_C_API const char* kp_LOG_recorder_error(void);

/* Records one event, a JSON object as docs/records.md describes it, from any thread. 0: recorded,
 * 1: rejected by the filter, else lost, by the numbers of kp_LOG_Recorded: 2 the ring is full, 3 an
 * unknown event or attribute, 4 a value, or no record at all, 5 too large, 6 no memory, 7 closed.
 */
KP_LOG_C_API int kp_LOG_recorder_record(kp_LOG_recorder* recorder, const char* record);

/* 1 when all that was recorded before is in every output within that time, else 0. */
KP_LOG_C_API int kp_LOG_recorder_flush(kp_LOG_recorder* recorder, unsigned milliseconds);

/* Writes what the recorder counts as a JSON object, with its NUL, into `size` bytes, cut where it
 * is longer; the result is its whole length without the NUL, or -1 where there is no memory for it.
 */
KP_LOG_C_API int kp_LOG_recorder_statistics(kp_LOG_recorder* recorder, char* buffer, size_t size);

/* Writes everything and closes. Null is allowed. */
KP_LOG_C_API void kp_LOG_recorder_close(kp_LOG_recorder* recorder);

#ifdef __cplusplus
}
#endif

#endif
