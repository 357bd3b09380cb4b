// What a user's clients may ask of a service, all of them together: so that nobody gets more by
// connecting again, or several times.
#ifndef RECORDING_RECORDS_USER_LIMITS_H
#define RECORDING_RECORDS_USER_LIMITS_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>

using limit_clock = std::chrono::steady_clock;

// So many records a second, and as many at once behind a second without any.
class record_rate {
 public:
  static constexpr uint64_t highest = 1000000;

  // 0: as many as there are.
  record_rate(uint64_t most, limit_clock::time_point now) : most_(most), then_(now) {}

  bool is_limited() const { return most_ != 0; }
  // How many may be taken now.
  uint64_t left(limit_clock::time_point now);
  // One of these was taken.
  void take() {
    if (is_limited()) credit_ -= std::min(credit_, a_record);
  }
  // When a piece of them may be taken that is worth the while: a twentieth of a second's, or one.
  limit_clock::time_point when_worthwhile(limit_clock::time_point now);

 private:
  static constexpr uint64_t a_record = 1000000000;  // of what a nanosecond brings `most_` of

  uint64_t most_;
  limit_clock::time_point then_;  // when the credit was reckoned
  uint64_t credit_ = most_ * a_record;
};

// So many bad records in a minute, which begins with the first of them.
class bad_record_limit {
 public:
  explicit bad_record_limit(std::optional<uint64_t> most) : most_(most) {}

  bool is_limited() const { return most_.has_value(); }
  // Counts one: whether it is within the limit.
  bool count(limit_clock::time_point now);
  // Whether the last one was the first beyond it in its minute.
  bool is_just_over() const { return most_ && bad_ == *most_ + 1; }

 private:
  std::optional<uint64_t> most_;  // nothing: as many as there are
  std::optional<limit_clock::time_point> minute_;
  uint64_t bad_ = 0;  // in it
};

#endif
