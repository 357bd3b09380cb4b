// What a user may send, by a clock of the test's own.
#include "recording/records/user_limits.h"

#include <gtest/gtest.h>

#include <random>

namespace chrono = std::chrono;

static const limit_clock::time_point start{chrono::hours(1000)};

static void take(record_rate& rate, uint64_t records) {
  for (uint64_t i = 0; i < records; ++i) rate.take();
}

TEST(RecordRate, IsASecondsRecordsAtOnce) {
  for (const uint64_t most :
       {uint64_t{1}, uint64_t{2}, uint64_t{7}, uint64_t{999999}, record_rate::highest}) {
    record_rate rate(most, start);
    EXPECT_EQ(rate.left(start), most);
    take(rate, most - 1);
    EXPECT_EQ(rate.left(start), 1u);
    take(rate, 1);
    EXPECT_EQ(rate.left(start), 0u);
    EXPECT_EQ(rate.left(start + chrono::nanoseconds(999) / most), 0u) << most;
  }
}

TEST(RecordRate, ComesBackRecordByRecord) {
  record_rate rate(4, start);
  take(rate, 4);
  EXPECT_EQ(rate.left(start + chrono::nanoseconds(249999999)), 0u);
  EXPECT_EQ(rate.left(start + chrono::milliseconds(250)), 1u);
  EXPECT_EQ(rate.left(start + chrono::milliseconds(999)), 3u);
  EXPECT_EQ(rate.left(start + chrono::seconds(1)), 4u);
  EXPECT_EQ(rate.left(start + chrono::hours(24)), 4u);
}

TEST(RecordRate, LosesNothingBetweenLooks) {
  record_rate rate(3, start);
  take(rate, 3);
  uint64_t taken = 0;
  std::mt19937 random(20261123);
  limit_clock::time_point now = start;
  while (now < start + chrono::seconds(10)) {
    now = std::min(now + chrono::microseconds(random() % 400000), start + chrono::seconds(10));
    const uint64_t left = rate.left(now);
    take(rate, left);
    taken += left;
  }
  EXPECT_EQ(taken, 30u);
}

TEST(RecordRate, IsWorthwhileBehindATwentiethOfASecond) {
  record_rate slow(2, start);
  EXPECT_EQ(slow.when_worthwhile(start), start);
  take(slow, 2);
  EXPECT_EQ(slow.when_worthwhile(start), start + chrono::milliseconds(500));
  record_rate quick(1000, start);
  take(quick, 1000);
  const auto then = quick.when_worthwhile(start);
  EXPECT_EQ(then, start + chrono::milliseconds(50));
  EXPECT_EQ(quick.left(then), 50u);
  record_rate odd(7, start);
  take(odd, 7);
  EXPECT_EQ(odd.left(odd.when_worthwhile(start)), 1u);
}

TEST(RecordRate, IsNoneWithoutALimit) {
  record_rate rate(0, start);
  take(rate, 1000);
  EXPECT_EQ(rate.left(start), UINT64_MAX);
}

TEST(BadRecordLimit, IsOfAMinuteFromTheFirstOn) {
  bad_record_limit limit(2);
  EXPECT_TRUE(limit.count(start));
  EXPECT_TRUE(limit.count(start + chrono::seconds(30)));
  EXPECT_FALSE(limit.count(start + chrono::seconds(59)));
  EXPECT_TRUE(limit.is_just_over());
  EXPECT_FALSE(limit.count(start + chrono::milliseconds(59999)));
  EXPECT_FALSE(limit.is_just_over());
  EXPECT_TRUE(limit.count(start + chrono::seconds(60)));
  EXPECT_TRUE(limit.count(start + chrono::seconds(119)));
  EXPECT_FALSE(limit.count(start + chrono::seconds(119)));
}

TEST(BadRecordLimit, MayBeNoneAtAllOrAny) {
  EXPECT_FALSE(bad_record_limit(0).count(start));
  bad_record_limit any(std::nullopt);
  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(any.count(start));
  EXPECT_FALSE(any.is_just_over());
}
