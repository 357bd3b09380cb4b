// What whoever takes a lock does about the note of one who died under it (docs/text-logs.md).
#ifndef RECORDING_FILES_SETTLEMENT_H
#define RECORDING_FILES_SETTLEMENT_H

#include "recording/files/folder_lock.h"
#include "recording/files/line_tail.h"

// Clears up behind the last holder of a lock that is held, and takes its note away. A dated log
// loses its unfinished line. A batch of a ring's events is in its output as a whole then, or not at
// all, as the ring says; where that cannot be, it is told that some of them may be there twice, or
// missing. The note leads to files of the lock's own name alone. Raises file_error: the note then
// stays.
void settle(folder_lock& lock, const file_report& report);

#endif
