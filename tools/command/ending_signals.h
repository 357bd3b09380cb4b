// SIGINT and SIGTERM as the end of a run that then shows what it has.
#ifndef TOOLS_COMMAND_ENDING_SIGNALS_H
#define TOOLS_COMMAND_ENDING_SIGNALS_H

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>

#include "recording/files/descriptor.h"

// Holds them back for a scope; one that is ignored stays so. Those that came end nothing behind it.
class ending_signals {
 public:
  ending_signals();  // raises std::system_error
  ~ending_signals();
  ending_signals(const ending_signals&) = delete;
  ending_signals& operator=(const ending_signals&) = delete;

  int descriptor() const { return descriptor_.get(); }  // can be read from the first of them on
  // The one that came, from the moment it was sent on; 0: none did.
  int ending() const;

 private:
  sigset_t held_{};
  sigset_t before_{};
  open_descriptor descriptor_;
};

// Standard output that nobody who does not read can hold up beyond such a signal: a second behind
// it what was not written is given up, and the stream is bad.
class ending_output_buffer : public std::streambuf {
 public:
  // The signals must live as long.
  explicit ending_output_buffer(const ending_signals& signals);
  int error() const { return error_; }  // errno of what failed; 0: nothing did

 protected:
  int overflow(int character) override;
  std::streamsize xsputn(const char* text, std::streamsize size) override;
  int sync() override;

 private:
  ssize_t write_some();
  bool wait_for_room();

  const ending_signals& signals_;
  mode_t kind_ = 0;            // of what standard output is, as in st_mode
  open_descriptor unwaiting_;  // the same pipe or terminal, opened not to wait; may be closed
  std::string text_;           // not written yet
  int error_ = 0;
  std::optional<std::chrono::steady_clock::time_point> deadline_;
};

class ending_output : public std::ostream {
 public:
  explicit ending_output(const ending_signals& signals) : std::ostream(nullptr), buffer_(signals) {
    rdbuf(&buffer_);
  }
  int error() const { return buffer_.error(); }

 private:
  ending_output_buffer buffer_;
};

#endif
