#include "recording/records/user_limits.h"

// --- Records ---

// The credit of a second is the most there is.
uint64_t record_rate::left(limit_clock::time_point now) {
  if (!is_limited()) return UINT64_MAX;
  const std::chrono::nanoseconds passed =
      std::clamp<std::chrono::nanoseconds>(now - then_, {}, std::chrono::seconds(1));
  then_ = now;
  credit_ = std::min(credit_ + static_cast<uint64_t>(passed.count()) * most_, most_ * a_record);
  return credit_ / a_record;
}

limit_clock::time_point record_rate::when_worthwhile(limit_clock::time_point now) {
  static constexpr uint64_t pieces_a_second = 20;
  const uint64_t wanted = std::max<uint64_t>(most_ / pieces_a_second, 1) * a_record;
  if (left(now) >= wanted / a_record) return now;
  const uint64_t lacking = wanted - credit_;
  return now + std::chrono::nanoseconds((lacking + most_ - 1) / most_);
}

// --- Bad records ---

bool bad_record_limit::count(limit_clock::time_point now) {
  if (!most_) return true;
  if (!minute_ || now - *minute_ >= std::chrono::minutes(1)) {
    minute_ = now;
    bad_ = 0;
  }
  return ++bad_ <= *most_;
}
