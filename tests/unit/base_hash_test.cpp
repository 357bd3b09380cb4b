#include "base/kp_hash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>
#include <vector>

static bool is_prime(unsigned n) {
  for (unsigned long long d = 2; d * d <= n; ++d)
    if (n % d == 0) return false;
  return n > 1;
}

// The sizes that the function can give, by asking for one more each time.
static std::vector<unsigned> all_sizes() {
  std::vector<unsigned> sizes = {KP_recommended_hash_size(0)};
  while (KP_recommended_hash_size(sizes.back() + 1) > sizes.back())
    sizes.push_back(KP_recommended_hash_size(sizes.back() + 1));
  return sizes;
}

// The same hash, slowly: exact arithmetic modulo 2^32 over the chosen bytes.
static uint32_t slow_hash(const std::string& text) {
  const size_t step = text.size() < 16 ? 1 : text.size() / 8;
  const long long factor = text.size() < 16 ? 37 : 39;
  long long hash = 0;
  for (size_t i = 0; i < text.size(); i += step)
    hash = (hash * factor + static_cast<signed char>(text[i]) + (1LL << 32)) % (1LL << 32);
  return static_cast<uint32_t>(hash);
}

TEST(RecommendedHashSize, SmallTablesStaySmall) {
  for (unsigned size : {0U, 1U, 3U}) EXPECT_EQ(KP_recommended_hash_size(size), 3U);
  for (unsigned size : {4U, 7U}) EXPECT_EQ(KP_recommended_hash_size(size), 7U);
}

TEST(RecommendedHashSize, FromEightOnTablesFitALargeDefinitionSet) {
  for (unsigned size : {8U, 23U, 128U, 4099U}) EXPECT_EQ(KP_recommended_hash_size(size), 4099U);
  EXPECT_EQ(KP_recommended_hash_size(4100), 8209U);
}

TEST(RecommendedHashSize, EverySizeIsPrimeAndAboutTwiceTheOneBefore) {
  const std::vector<unsigned> sizes = all_sizes();
  for (size_t i = 0; i < sizes.size(); ++i) {
    EXPECT_TRUE(is_prime(sizes[i])) << sizes[i];
    if (i <= 2) continue;
    EXPECT_NEAR(sizes[i], 2.0 * sizes[i - 1], 100) << sizes[i];
  }
}

TEST(RecommendedHashSize, AskingAgainGivesTheSame) {
  for (unsigned size : all_sizes()) EXPECT_EQ(KP_recommended_hash_size(size), size);
}

TEST(RecommendedHashSize, BeyondTheTableGivesItsLargest) {
  EXPECT_EQ(KP_recommended_hash_size(std::numeric_limits<unsigned>::max()), 4294967291U);
  EXPECT_EQ(all_sizes().back(), 4294967291U);
}

TEST(TextHash, EmptyTextIsZeroEvenWithoutAText) {
  EXPECT_EQ(KP_text_hash("", 0), 0U);
  EXPECT_EQ(KP_text_hash(nullptr, 0), 0U);
}

TEST(TextHash, ShortTextsTakeEveryByte) {
  EXPECT_EQ(KP_text_hash("a", 1), 97U);
  EXPECT_EQ(KP_text_hash("ab", 2), 97U * 37 + 98);
}

TEST(TextHash, BytesAbove127AreNegative) {
  EXPECT_EQ(KP_text_hash("\xff", 1), 4294967295U);
  EXPECT_EQ(KP_text_hash("\x80", 1), 4294967168U);
}

TEST(TextHash, LongTextsTakeEveryEighthPart) {
  const std::string text = "AxBxCxDxExFxGxHx";
  uint32_t expected = 0;
  for (char c : std::string("ABCDEFGH")) expected = expected * 39 + static_cast<uint32_t>(c);
  EXPECT_EQ(KP_text_hash(text.data(), text.size()), expected);
}

TEST(TextHash, AgreesWithExactArithmeticAtEveryLength) {
  std::string text;
  for (unsigned length = 0; length <= 300; ++length) {
    EXPECT_EQ(KP_text_hash(text.data(), text.size()), slow_hash(text)) << length;
    text += static_cast<char>(length * 89 + 7);
  }
}

TEST(TextHash, AgreesWithExactArithmeticOverRandomTexts) {
  std::mt19937 random(20261115);
  for (int round = 0; round < 40000; ++round) {
    std::string text(static_cast<size_t>(round) % 41, '\0');
    for (char& c : text) c = static_cast<char>(random());
    ASSERT_EQ(KP_text_hash(text.data(), text.size()), slow_hash(text)) << text.size();
  }
}

TEST(Hash, BucketIsTheHashModuloTheBuckets) {
  EXPECT_EQ(KP_hash(kp_String("ab"), 7), (97U * 37 + 98) % 7);
}

TEST(Hash, ANumberAlwaysFallsIntoTheSameOfTheBuckets) {
  for (const unsigned key : {0U, 1U, 4099U, 4294967295U}) {
    EXPECT_EQ(KP_hash(key, 1), 0U);
    EXPECT_LT(KP_hash(key, 4099), 4099U);
    EXPECT_EQ(KP_hash(key, 4099), KP_hash(key, 4099));
  }
}

// The fullest of 4099 buckets when 20,000 numbers of that stride fall into them.
static unsigned fullest_bucket(unsigned stride) {
  std::vector<unsigned> counts(4099);
  for (unsigned i = 0; i < 20000; ++i) ++counts[KP_hash(i * stride, 4099)];
  return *std::max_element(counts.begin(), counts.end());
}

TEST(Hash, NumbersOfAnyStrideSpreadOverTheBuckets) {
  // Five numbers a bucket on average; by chance the fullest holds about sixteen.
  for (const unsigned stride : {1U, 2U, 7U, 256U, 4096U, 4098U, 4099U, 4100U, 8198U, 65536U, 65537U,
                                131072U, 1048593U, 4099U * 4099U})
    EXPECT_LE(fullest_bucket(stride), 20U) << stride;
}

TEST(Hash, StringWithoutABufferFallsIntoTheFirstBucket) {
  EXPECT_EQ(KP_hash(kp_String(), 7), 0U);
}
