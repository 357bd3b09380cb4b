// Where records come from that are followed: what is there, and what comes later.
#ifndef RECORDING_JOURNAL_FOLLOWED_PLACE_H
#define RECORDING_JOURNAL_FOLLOWED_PLACE_H

#include <poll.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "recording/files/file_error.h"
#include "recording/journal/segment_index.h"
#include "recording/records/input.h"

struct follow_rules {
  // Told, in one line, of what becomes of files; and of what cannot be read, and is left out, or of
  // a place, once, that descriptors are lacking for it.
  std::function<void(const std::string& text)> tell = {};
  std::function<void(const file_error& error)> fail = {};
  // Whether no record is wanted of a segment of which this is all; its records are counted
  // elsewhere then. Empty: all are wanted.
  std::function<bool(const segment_index& index)> is_vain = {};
  // So many of the last records are enough of what is there at first; 0: all are wanted. Told of
  // segments that are not read for that.
  uint64_t last = 0;
  std::function<void(const segment_index& index)> leave_out = {};
};

// Used by one thread at a time.
class followed_place {
 public:
  virtual ~followed_place() = default;

  // The next line that is there; valid until the next call. False: there is none at the moment.
  virtual bool next(record_line& line) = 0;
  // Nothing will ever come again.
  virtual bool at_end() const { return false; }
  // What to wait for, and how long at most; negative: any time.
  virtual pollfd watched() const = 0;
  virtual std::chrono::milliseconds patience() const = 0;
  // Takes note of what happened; called behind each wait, with what that gave for `watched`.
  virtual void look(const pollfd& ready) = 0;
};

// Standard input ("-") and what is no regular file are read to their end, a FIFO that has a name
// for ever; a file is followed by its name, whatever file has that; any other path is a journal, or
// a file, or will be. Raises file_error for what cannot be read at all.
std::unique_ptr<followed_place> followed_place_of(const std::string& path,
                                                  const follow_rules& rules);

#endif
