// A recorder's place, for tests of what calls are answered and of what comes out.
#ifndef TESTS_RECORDER_RECORDER_CALLS_H
#define TESTS_RECORDER_RECORDER_CALLS_H

#include <mutex>
#include <thread>
#include <utility>

#include "tests/recorder/recorder_fixture.h"

using answer = kp_LOG_Recorded;
using std::chrono::milliseconds;

inline constexpr milliseconds patience(60000);

// With options that leave faults to the test, and an event.
class RecorderCalls : public RecorderPlace {
 protected:
  static shop::KEY_SET tea() {
    return {.KEY = "tea",
            .OWNER = "zoe",
            .BYTES = 17u,
            .SHARE = 0.5,
            .CHANGE = -3,
            .OUTCOME = static_cast<shop::entry_KEY_SET::OUTCOME_value>(7)};
  }

  // Options of a recorder that may have faults, which are kept.
  kp_LOG_RecorderOptions options_with_faults() {
    kp_LOG_RecorderOptions kept = options();
    kept.on_fault = [this](kp_LOG_RecorderFault kind, const std::string& text) {
      const std::lock_guard hold(mutex_);
      faults_.emplace_back(kind, text);
    };
    return kept;
  }
  // The same with text logs in a folder that can be taken away; the rings stay.
  kp_LOG_RecorderOptions options_with_logs_in(const std::string& folder) {
    kp_LOG_RecorderOptions split = options_with_faults();
    std::filesystem::create_directory(folder);
    split.text = folder + "/shop";
    split.ring_folder = folder_.path();
    return split;
  }
  std::vector<std::string> faults(kp_LOG_RecorderFault kind) {
    const std::lock_guard hold(mutex_);
    std::vector<std::string> texts;
    for (const auto& [of, text] : faults_)
      if (of == kind) texts.push_back(text);
    return texts;
  }
  // Looks until it is so, at most for a while.
  template <class Condition>
  static bool becomes(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(milliseconds(5));
    }
    return true;
  }

  std::mutex mutex_;
  std::vector<std::pair<kp_LOG_RecorderFault, std::string>> faults_;
};

#endif
