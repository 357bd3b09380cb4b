// How far the times of records may lie from now.
#ifndef TOOLS_EMIT_SKEW_H
#define TOOLS_EMIT_SKEW_H

#include <chrono>
#include <functional>
#include <optional>

#include "base/kp_time.h"
#include "recording/records/parser.h"

class time_skew {
 public:
  using clock = std::function<std::chrono::system_clock::time_point()>;

  // Nothing: as far as they like.
  explicit time_skew(
      std::optional<std::chrono::seconds> most,
      clock now = [] { return std::chrono::system_clock::now(); })
      : most_(most), now_(std::move(now)) {}

  bool is_limited() const { return most_.has_value(); }
  // Whether the time lies no farther from now than allowed, before or behind; to the second.
  bool allows(const kp_Time& time) const;
  // The fault of the record whose time that is.
  record_error fault_of(const parsed_record& record) const;

 private:
  std::optional<std::chrono::seconds> most_;
  clock now_;
};

#endif
