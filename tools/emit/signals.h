// Signals that a long run answers between two records.
#ifndef TOOLS_EMIT_SIGNALS_H
#define TOOLS_EMIT_SIGNALS_H

#include <csignal>

// Holds SIGTERM, SIGINT and SIGHUP back for a scope, to be taken when there is time for them, and
// ignores SIGPIPE: a reader of the output that has left is an error of the write.
class emit_signals {
 public:
  emit_signals();  // raises std::system_error
  ~emit_signals();
  emit_signals(const emit_signals&) = delete;
  emit_signals& operator=(const emit_signals&) = delete;

  int descriptor() const { return descriptor_; }  // can be read while a signal waits
  int take();                                     // the signal that waits; 0: none
  // SIGTERM or SIGINT, from the moment it was sent on; 0: neither came.
  int ending() const;

 private:
  sigset_t before_{};
  struct sigaction pipe_before_ {};
  int descriptor_ = -1;
  int ending_ = 0;  // SIGTERM or SIGINT, taken
};

#endif
