#include "tools/emit/patience.h"

#include <chrono>
#include <thread>

#include "recording/files/descriptor.h"

// Between two tries; in steps, so that a signal is not waited for.
static constexpr std::chrono::milliseconds try_pause(200);
static constexpr std::chrono::milliseconds pause_step(20);

bool emit_patience::tries_again(const file_error& error) {
  ++figures_.tries;
  if (!is_patient_ || error.name() == standard_output_name) return false;
  if (!figures_.since) figures_.since = std::chrono::system_clock::now();
  if (figures_.trouble != error.what()) {
    figures_.trouble = error.what();
    report_.problem("unwritable"_rule,
                    figures_.trouble + "; nothing is read until it can be written");
  }
  meanwhile_();
  for (auto left = try_pause; left.count() > 0; left -= pause_step) {
    if (signals_.ending() != 0) return false;
    std::this_thread::sleep_for(pause_step);
  }
  return true;
}

void emit_patience::was_written() {
  if (!figures_.since) return;
  figures_.since.reset();
  figures_.trouble.clear();
  report_.note("the outputs can be written again");
}
