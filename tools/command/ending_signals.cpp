#include "tools/command/ending_signals.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <string_view>
#include <system_error>

#include "base/kp_clib.h"

// --- Signals ---

static bool is_ignored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

ending_signals::ending_signals() {
  sigemptyset(&held_);
  for (const int signal : {SIGINT, SIGTERM})
    if (!is_ignored(signal)) sigaddset(&held_, signal);
  descriptor_ = open_descriptor(signalfd(-1, &held_, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!descriptor_.is_open()) throw std::system_error(errno, std::generic_category(), "signalfd");
  pthread_sigmask(SIG_BLOCK, &held_, &before_);
}

// Whoever ends may have an error to tell.
ending_signals::~ending_signals() {
  const int error = errno;
  signalfd_siginfo taken{};
  while (KP_read(descriptor_.get(), &taken, sizeof taken) == sizeof taken) {
  }
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  errno = error;
}

int ending_signals::ending() const {
  sigset_t waiting;
  sigemptyset(&waiting);
  sigpending(&waiting);
  for (const int signal : {SIGINT, SIGTERM})
    if (sigismember(&held_, signal) == 1 && sigismember(&waiting, signal) == 1) return signal;
  return 0;
}

// --- Standard output ---

static constexpr std::chrono::milliseconds output_patience(1000);

// Others have the descriptor, too, and expect it to wait or not as it does: it stays so.
ending_output_buffer::ending_output_buffer(const ending_signals& signals) : signals_(signals) {
  struct stat status {};
  if (KP_fstat(STDOUT_FILENO, &status) != 0) return;
  kind_ = status.st_mode & S_IFMT;
  if (kind_ != S_IFIFO && kind_ != S_IFCHR) return;
  unwaiting_ =
      open_descriptor(KP_open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
}

int ending_output_buffer::overflow(int character) {
  if (character != traits_type::eof()) text_ += static_cast<char>(character);
  return traits_type::not_eof(character);
}

std::streamsize ending_output_buffer::xsputn(const char* text, std::streamsize size) {
  text_.append(text, static_cast<size_t>(size));
  return size;
}

// One write, as write(2).
ssize_t ending_output_buffer::write_some() {
  if (kind_ == S_IFSOCK)
    return send(STDOUT_FILENO, text_.data(), text_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (unwaiting_.is_open()) return KP_write(unwaiting_.get(), text_.data(), text_.size());
  if (kind_ != S_IFIFO && kind_ != S_IFCHR)
    return KP_write(STDOUT_FILENO, text_.data(), text_.size());
  // A pipe that has room has it for that much.
  pollfd room{STDOUT_FILENO, POLLOUT, 0};
  if (poll(&room, 1, 0) == 1)
    return KP_write(STDOUT_FILENO, text_.data(), std::min<size_t>(text_.size(), PIPE_BUF));
  errno = EAGAIN;
  return -1;
}

// False when that is over.
bool ending_output_buffer::wait_for_room() {
  using std::chrono::milliseconds;
  const auto now = std::chrono::steady_clock::now();
  if (!deadline_ && signals_.ending() != 0) deadline_ = now + output_patience;
  if (deadline_ && now >= *deadline_) return false;
  const auto patience =
      deadline_ ? std::chrono::ceil<milliseconds>(*deadline_ - now) : milliseconds(-1);
  std::array<pollfd, 2> waiting = {{{STDOUT_FILENO, POLLOUT, 0}, {-1, POLLIN, 0}}};
  if (!deadline_) waiting[1].fd = signals_.descriptor();
  poll(waiting.data(), waiting.size(), static_cast<int>(patience.count()));
  return true;
}

int ending_output_buffer::sync() {
  while (!text_.empty() && error_ == 0) {
    const ssize_t written = write_some();
    if (written >= 0)
      text_.erase(0, static_cast<size_t>(written));
    else if (errno != EINTR && errno != EAGAIN)
      error_ = errno;
    else if (errno == EAGAIN && !wait_for_room())
      error_ = EINTR;
  }
  return error_ == 0 ? 0 : -1;
}
