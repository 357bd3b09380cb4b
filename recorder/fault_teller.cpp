#include "recorder/fault_teller.h"

#include <new>

void fault_teller::begin() noexcept {
  has_begun_ = true;
  for (const auto& [kind, text] : early_) call(kind, text);
  early_.clear();
}

// Where there is no memory to tell it with, it is not told.
void fault_teller::tell(kp_LOG_RecorderFault kind, const std::string& text) noexcept {
  if (!on_fault_) return;
  try {
    if (has_begun_)
      tell_if_due(kind, text);
    else
      early_.emplace_back(kind, text);
  } catch (const std::bad_alloc&) {
  }
}

void fault_teller::tell_if_due(kp_LOG_RecorderFault kind, const std::string& text) {
  told& last = told_[static_cast<size_t>(kind)];
  const clock::time_point now = clock::now();
  if (last.is_told && now - last.when < std::chrono::minutes(1)) {
    ++last.left_out;
    return;
  }
  const std::string more =
      last.left_out == 0 ? "" : " (and " + std::to_string(last.left_out) + " others before)";
  last = {true, now, 0};
  call(kind, text + more);
}

void fault_teller::call(kp_LOG_RecorderFault kind, const std::string& text) noexcept {
  try {
    if (on_fault_) on_fault_(kind, text);
  } catch (...) {  // the program's own, which has nobody else to go to
  }
}
