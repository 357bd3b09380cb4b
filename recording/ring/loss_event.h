// Events by which a ring tells, in its outputs, what was lost.
#ifndef RECORDING_RING_LOSS_EVENT_H
#define RECORDING_RING_LOSS_EVENT_H

#include <vector>

#include "recording/ring/ring_file.h"
#include "recording/ring/ring_reader.h"

// What is lost and not told yet, by kind; kinds of which nothing is are left out.
std::vector<lost_bytes> losses_to_tell(const ring_file& ring);

// Puts an event for each of the losses into a block that nobody uses. It counts at once, whatever
// happens then.
std::vector<ring_event> put_losses(ring_file& ring, block_head& block,
                                   const std::vector<lost_bytes>& losses);

// Notes that the event is in every output, or that its block was found behind a process that died:
// what it tells is not told again.
void note_told(ring_file& ring, const ring_event& event);

#endif
