#include "recording/text/number.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

// Holds the numbers about the limits of every type.
__extension__ using wide_number = __int128;

// By division, which no library of numbers takes part in.
static std::string written(wide_number number, int base = 10) {
  const bool is_negative = number < 0;
  std::string text;
  do {
    const int digit = static_cast<int>(number % base);
    text.insert(text.begin(), "0123456789abcdef"[digit < 0 ? -digit : digit]);
    number /= base;
  } while (number != 0);
  return is_negative ? '-' + text : text;
}

template <class Number>
static std::optional<Number> held(wide_number number) {
  using limits = std::numeric_limits<Number>;
  if (number < limits::min() || number > limits::max()) return std::nullopt;
  return static_cast<Number>(number);
}

// The numbers about both limits of the type and about zero.
template <class Number>
static std::vector<wide_number> boundaries() {
  using limits = std::numeric_limits<Number>;
  std::vector<wide_number> numbers;
  for (const wide_number middle :
       {wide_number{limits::min()}, wide_number{0}, wide_number{limits::max()}})
    for (int away = -2; away <= 2; ++away) numbers.push_back(middle + away);
  return numbers;
}

static constexpr std::array no_numbers = {"",   "-",   "+1",  " 1",  "1 ",  "1x",
                                          "x1", "1.0", "1e1", "--1", "1-1", "1,0"};

template <class Number>
class WholeNumbers : public testing::Test {};
using whole_number_types =
    testing::Types<int8_t, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, uint64_t>;
TYPED_TEST_SUITE(WholeNumbers, whole_number_types);

TYPED_TEST(WholeNumbers, AreReadUpToTheLimitsOfTheirTypeAndNotBeyond) {
  for (const wide_number number : boundaries<TypeParam>())
    EXPECT_EQ(number_of<TypeParam>(written(number)), held<TypeParam>(number)) << written(number);
}

TYPED_TEST(WholeNumbers, AreTheWholeTextAndMayHaveZerosInFront) {
  for (const char* const text : no_numbers)
    EXPECT_EQ(number_of<TypeParam>(text), std::nullopt) << text;
  EXPECT_EQ(number_of<TypeParam>("0x1"), std::nullopt);
  EXPECT_EQ(number_of<TypeParam>(std::string_view("1\0", 2)), std::nullopt);
  EXPECT_EQ(number_of<TypeParam>({}), std::nullopt);
  EXPECT_EQ(number_of<TypeParam>("007"), TypeParam{7});
}

template <class Number>
class UnsignedNumbers : public testing::Test {};
using unsigned_number_types = testing::Types<uint8_t, uint16_t, uint32_t, uint64_t>;
TYPED_TEST_SUITE(UnsignedNumbers, unsigned_number_types);

TYPED_TEST(UnsignedNumbers, AreReadInEitherBaseUpToTheLimitOfTheirType) {
  for (const wide_number number : boundaries<TypeParam>()) {
    EXPECT_EQ(number_of_either_base<TypeParam>(written(number)), held<TypeParam>(number));
    if (number < 0) continue;
    for (const char* const prefix : {"0x", "0X", "0x000"})
      EXPECT_EQ(number_of_either_base<TypeParam>(prefix + written(number, 16)),
                held<TypeParam>(number));
  }
  EXPECT_EQ(number_of_either_base<TypeParam>("0017"), TypeParam{17});
  EXPECT_EQ(number_of_either_base<TypeParam>("0x7F"), TypeParam{0x7F});
}

TYPED_TEST(UnsignedNumbers, AreTheWholeTextInEitherBase) {
  for (const char* const text : no_numbers)
    EXPECT_EQ(number_of_either_base<TypeParam>(text), std::nullopt) << text;
  for (const char* const text :
       {"0x", "0x-1", "-0x1", "0x+1", "0x 1", "0xg", "0x1 ", "0x0x1", "00x1", "0x1.0", "ff"})
    EXPECT_EQ(number_of_either_base<TypeParam>(text), std::nullopt) << text;
}

TEST(RealNumbers, AreReadUpToTheLimitsOfTheirTypeAndNotBeyond) {
  EXPECT_EQ(number_of<double>("1.7976931348623157e308"), std::numeric_limits<double>::max());
  EXPECT_EQ(number_of<double>("-4.9e-324"), -std::numeric_limits<double>::denorm_min());
  EXPECT_TRUE(std::signbit(number_of<double>("-0").value_or(1)));
  for (const char* const text : {"1.8e308", "-1.8e308", "1e-400", "", "1 ", "1e", "0x1", "+1"})
    EXPECT_EQ(number_of<double>(text), std::nullopt) << text;
}
