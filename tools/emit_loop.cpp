#include "tools/emit_loop.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

// Turns of reading behind the signal that ends the run. Senders that never pause cannot keep it
// from ending.
static constexpr int last_turns = 1000;

emit_loop::emit_loop(const emit_signals& signals,
                     std::vector<std::unique_ptr<record_input>>& inputs, emit_pipeline& pipeline,
                     std::function<void()> reload)
    : signals_(signals), inputs_(inputs), pipeline_(pipeline), reload_(std::move(reload)) {}

bool emit_loop::is_running() const {
  const bool has_input = std::any_of(inputs_.begin(), inputs_.end(),
                                     [](const auto& input) { return !input->at_end(); });
  return has_input && ending_ == 0 && !pipeline_.has_stopped();
}

bool emit_loop::run() {
  while (is_running()) {
    const bool is_idle = turn(pipeline_.has_unwritten() ? 0 : -1) == 0;
    if (is_idle) pipeline_.write();
    for (int signal = signals_.take(); signal != 0; signal = signals_.take()) answer(signal);
  }
  const bool is_cut_short = ending_ == SIGINT && has_unread_files();
  if (ending_ != 0) take_what_was_sent();
  return !is_cut_short;
}

bool emit_loop::has_unread_files() const {
  return std::any_of(inputs_.begin(), inputs_.end(),
                     [](const auto& input) { return !input->at_end() && !input->is_lasting(); });
}

// One turn of waiting, at most so many milliseconds, and reading. The number of descriptors that
// were ready.
int emit_loop::turn(int patience) {
  watched_.assign(1, {signals_.descriptor(), POLLIN, 0});
  ends_.clear();
  for (const auto& input : inputs_) {
    input->watch(watched_);
    ends_.push_back(watched_.size());
  }
  const int ready = poll(watched_.data(), watched_.size(), patience);
  if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
  if (ready > 0) read_ready();
  return ready;
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
  pipeline_.write();
  pipeline_.reopen();
  reload_();
}

void emit_loop::take_what_was_sent() {
  std::erase_if(inputs_, [](const auto& input) { return !input->is_lasting(); });
  for (int turns = 0; turns < last_turns && !pipeline_.has_stopped(); ++turns)
    if (turn(0) == 0) return;
}
