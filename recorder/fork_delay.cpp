#include "recorder/fork_delay.h"

#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <new>

struct fork_turns {
  std::mutex mutex;
  std::condition_variable changed;
  unsigned delays = 0;
  unsigned forks = 0;  // that wait, or are made
};

// Never destroyed: a recorder may be a static object, and go when the process ends.
alignas(fork_turns) static unsigned char turns_memory[sizeof(fork_turns)];
static fork_turns& turns() {
  return *std::launder(reinterpret_cast<fork_turns*>(turns_memory));
}
constinit static thread_local unsigned own_delays = 0;

fork_delay::fork_delay() noexcept {
  std::unique_lock hold(turns().mutex);
  if (own_delays == 0) turns().changed.wait(hold, [] { return turns().forks == 0; });
  ++own_delays;
  ++turns().delays;
}

fork_delay::~fork_delay() {
  const std::lock_guard hold(turns().mutex);
  --own_delays;
  --turns().delays;
  turns().changed.notify_all();
}

static void begin_fork() {
  std::unique_lock hold(turns().mutex);
  ++turns().forks;
  turns().changed.wait(hold, [] { return turns().delays == own_delays; });
}

static void end_fork() {
  const std::lock_guard hold(turns().mutex);
  --turns().forks;
  turns().changed.notify_all();
}

// Nobody else is in the child.
static void begin_child() {
  new (turns_memory) fork_turns;
  turns().delays = own_delays;
}

void fork_delay::prepare() {
  static const bool is_prepared = [] {
    new (turns_memory) fork_turns;
    return pthread_atfork(begin_fork, end_fork, begin_child) == 0;
  }();
  if (!is_prepared) throw std::bad_alloc();
}
