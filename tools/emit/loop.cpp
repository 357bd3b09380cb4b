#include "tools/emit/loop.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <system_error>

// --- Signals

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

// --- The loop

// For what had been sent when the signal came, so that the run ends within two seconds.
static constexpr std::chrono::milliseconds last_patience(1500);

emit_loop::emit_loop(emit_signals& signals, std::vector<std::unique_ptr<record_input>>& inputs,
                     emit_pipeline& pipeline, metrics_file& metrics, service_manager& manager,
                     std::function<void()> reload)
    : signals_(signals),
      inputs_(inputs),
      pipeline_(pipeline),
      metrics_(metrics),
      manager_(manager),
      reload_(std::move(reload)) {}

bool emit_loop::is_running() const {
  const bool has_input = std::any_of(inputs_.begin(), inputs_.end(),
                                     [](const auto& input) { return !input->at_end(); });
  return has_input && ending_ == 0 && !pipeline_.has_stopped();
}

// Signals are answered before anything is read, so that what was sent behind a signal finds it
// answered.
emit_end emit_loop::run() {
  std::chrono::milliseconds until_upkeep(0);
  while (is_running()) {
    const bool is_idle = !wait(pipeline_.has_unwritten() ? std::chrono::milliseconds(0)
                                                         : shorter_wait(until_upkeep, patience()));
    const bool has_time = is_idle && !pipeline_.has_unwritten();
    if (is_idle ? pipeline_.has_unwritten() : pipeline_.is_write_due()) pipeline_.write();
    until_upkeep = has_time ? pipeline_.keep_up() : std::chrono::milliseconds(0);
    for (int signal = signals_.take(); signal != 0; signal = signals_.take()) answer(signal);
    if (ending_ == 0) read_ready();
    metrics_.look();
    manager_.look();
  }
  manager_.stopping();
  return ending_ != 0 ? take_what_was_sent() : emit_end{};
}

// How long none of them minds to be left alone; negative: any time.
std::chrono::milliseconds emit_loop::patience() const {
  std::chrono::milliseconds least = shorter_wait(metrics_.patience(), manager_.patience());
  for (const auto& input : inputs_) least = shorter_wait(input->patience(), least);
  return least;
}

// Waits for inputs and signals, at most so long. False when nothing came.
bool emit_loop::wait(std::chrono::milliseconds patience) {
  watched_.assign(1, {ending_ == 0 ? signals_.descriptor() : -1, POLLIN, 0});
  ends_.clear();
  for (const auto& input : inputs_) {
    input->watch(watched_);
    ends_.push_back(watched_.size());
  }
  const auto most = std::min(patience, std::chrono::milliseconds(std::chrono::hours(1)));
  const int ready = poll(watched_.data(), watched_.size(), static_cast<int>(most.count()));
  if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
  return ready != 0;
}

void emit_loop::read_ready() {
  const record_taker take = [this](const record_line& line) { pipeline_.take(line); };
  size_t begin = 1;
  for (size_t i = 0; i < inputs_.size(); ++i) {
    inputs_[i]->read(std::span(watched_).subspan(begin, ends_[i] - begin), take);
    begin = ends_[i];
  }
}

void emit_loop::answer(int signal) {
  if (signal != SIGHUP) {
    ending_ = signal;
    return;
  }
  manager_.reloading();
  pipeline_.write();
  pipeline_.reopen();
  reload_();
  manager_.ready();
}

emit_end emit_loop::take_what_was_sent() {
  const record_deadline deadline = std::chrono::steady_clock::now() + last_patience;
  const record_taker take = [this](const record_line& line) { pipeline_.take(line); };
  emit_end end;
  for (const auto& input : inputs_) {
    input->read_last(take, deadline);
    std::ranges::move(input->unread(), std::back_inserter(end.unread));
  }
  end.signal = ending_;
  end.is_cut_short = std::any_of(inputs_.begin(), inputs_.end(), [](const auto& input) {
    return !input->at_end() && !input->is_lasting();
  });
  return end;
}
