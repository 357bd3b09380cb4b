// What commands say, on standard error.
#ifndef RECORDING_REPORT_STANDARD_ERROR_H
#define RECORDING_REPORT_STANDARD_ERROR_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <ostream>
#include <streambuf>
#include <string>
#include <utility>

#include "recording/files/descriptor.h"

// Gathers text until it is flushed, and writes it by one call, so that other processes with the
// same standard error do not write into it. What cannot be written is kept, 64 KiB at most, and
// tried again at the next flush; when that works, one line tells what was late and what is lost.
//
// With `is_to_end`, which says whether the process is to end, nobody who does not read can hold it
// up: it waits a second for room, and not again before that has come; behind the last text it waits
// until it is to end.
class standard_error_buffer : public std::streambuf {
 public:
  standard_error_buffer(int descriptor, std::function<bool()> is_to_end);

  // Writes what is there, and waits a second for room if need be.
  void finish();

 protected:
  int overflow(int character) override;
  std::streamsize xsputn(const char* text, std::streamsize size) override;
  int sync() override;

 private:
  using clock = std::chrono::steady_clock;

  ssize_t write_some();
  bool waits_for_room(clock::time_point began) const;
  bool is_written();
  void keep_what_fits();
  std::string lack() const;

  int descriptor_;
  std::function<bool()> is_to_end_;
  mode_t kind_ = 0;            // of what the descriptor leads to, as in st_mode
  open_descriptor unwaiting_;  // the same pipe or terminal, opened not to wait; may be closed
  bool is_finishing_ = false;
  std::string text_;       // not written yet
  bool is_json_ = false;   // the form of what is written
  int error_ = 0;          // of the write that failed first; 0: none did since the last good one
  size_t lost_lines_ = 0;  // since then
};

// A stream that stays good whatever its descriptor takes.
class standard_error : public std::ostream {
 public:
  explicit standard_error(int descriptor, std::function<bool()> is_to_end = {})
      : std::ostream(nullptr), buffer_(descriptor, std::move(is_to_end)) {
    rdbuf(&buffer_);
  }
  ~standard_error() override { buffer_.finish(); }
  standard_error(const standard_error&) = delete;
  standard_error& operator=(const standard_error&) = delete;

 private:
  standard_error_buffer buffer_;
};

#endif
