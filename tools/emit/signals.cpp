#include "tools/emit/signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

emit_signals::emit_signals() {
  sigset_t held_back;
  sigemptyset(&held_back);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&held_back, signal);
  descriptor_ = signalfd(-1, &held_back, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  pthread_sigmask(SIG_BLOCK, &held_back, &before_);
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignored, &pipe_before_);
}

// Signals that were answered without being taken must not end the process behind it.
emit_signals::~emit_signals() {
  while (take() != 0) {
  }
  close(descriptor_);
  sigaction(SIGPIPE, &pipe_before_, nullptr);
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

int emit_signals::take() {
  signalfd_siginfo taken{};
  if (read(descriptor_, &taken, sizeof taken) != sizeof taken) return 0;
  const int signal = static_cast<int>(taken.ssi_signo);
  if (signal != SIGHUP) ending_ = signal;
  return signal;
}

int emit_signals::ending() const {
  sigset_t waiting;
  sigemptyset(&waiting);
  sigpending(&waiting);
  for (const int signal : {SIGTERM, SIGINT})
    if (ending_ == 0 && sigismember(&waiting, signal) == 1) return signal;
  return ending_;
}
