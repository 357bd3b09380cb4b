// Tells the program of a recorder's faults, not too often.
#ifndef RECORDER_FAULT_TELLER_H
#define RECORDER_FAULT_TELLER_H

#include <array>
#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "kp_LOG_Recorder.h"

// Used by one thread at a time.
class fault_teller {
 public:
  using function = std::function<void(kp_LOG_RecorderFault kind, const std::string& text)>;

  explicit fault_teller(const function& on_fault) : on_fault_(on_fault) {}

  // From now on the program is told; what was to be told before it is told now.
  void begin() noexcept;
  // Calls the program's function, unless it was called for that kind within the last minute. What
  // was left out since is counted in the text.
  void tell(kp_LOG_RecorderFault kind, const std::string& text) noexcept;

 private:
  using clock = std::chrono::steady_clock;
  struct told {
    bool is_told = false;
    clock::time_point when;
    uint64_t left_out = 0;
  };

  void tell_if_due(kp_LOG_RecorderFault kind, const std::string& text);
  void call(kp_LOG_RecorderFault kind, const std::string& text) noexcept;

  const function& on_fault_;
  bool has_begun_ = false;
  std::vector<std::pair<kp_LOG_RecorderFault, std::string>> early_;
  std::array<told, 5> told_;  // by kind
};

#endif
