// Lines put together piece by piece: every piece as it is, numbers as the standard library writes
// them.
#include "recording/text/line_writer.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>

TEST(LineWriter, GrowsWithItsPieces) {
  line_writer line;
  std::string expected;
  std::string piece;
  for (int round = 0; round < 3; ++round) {
    line.clear();
    expected.clear();
    EXPECT_EQ(line.text(), "");
    for (size_t size = 0; size < 300; ++size, piece += static_cast<char>('a' + size % 26)) {
      line.append(std::string_view(piece));
      line.append(',');
      line.append("\"x\"");
      line.append(line_piece(piece));
      expected += piece + ",\"x\"" + piece;
    }
    ASSERT_EQ(line.text(), expected);
  }
  line.append(std::string_view());
  EXPECT_EQ(line.text(), expected);
}

TEST(LineWriter, SkipsTheFirstBytesOfAPiece) {
  for (const size_t size : {1U, 2U, 31U, 32U, 33U, 34U, 100U}) {
    const std::string text(size, 'x');
    line_writer line;
    line.append(line_piece("," + text), 1);
    EXPECT_EQ(line.text(), text);
  }
}

template <class Number>
static std::string written(Number number) {
  line_writer line;
  line.append_number(number);
  return std::string(line.text());
}

TEST(LineWriter, WritesWholeNumbers) {
  EXPECT_EQ(written(0), "0");
  EXPECT_EQ(written(-1), "-1");
  EXPECT_EQ(written(10U), "10");
  EXPECT_EQ(written(static_cast<signed char>(-128)), "-128");
  EXPECT_EQ(written(std::numeric_limits<int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(written(std::numeric_limits<uint64_t>::max()), "18446744073709551615");
}

static std::string standard_text(double number) {
  char text[64];
  return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

TEST(LineWriter, WritesFloatsAsTheStandardLibraryDoes) {
  for (const double number : {0.0,
                              -0.0,
                              1.0,
                              -1.5,
                              0.1,
                              0.25,
                              0.001,
                              0.0001,
                              0.0012,
                              0.00012,
                              0.000012,
                              0.000123,
                              0.000001,
                              0.0000001,
                              1e5,
                              123456.0,
                              123450.0,
                              1e6,
                              1200300.0,
                              99999.5,
                              999999999.0,
                              1e9,
                              999999999.999999,
                              1e15,
                              1e22,
                              1e300,
                              5e-324,
                              0.3 + 0.1 + 0.2})
    EXPECT_EQ(written(number), standard_text(number));
}

// Of any bits; of few digits, which are written another way; and their neighbours.
TEST(LineWriter, WritesRandomFloatsAsTheStandardLibraryDoes) {
  std::mt19937_64 random(20261122);
  for (int round = 0; round < 100000; ++round) {
    double any = 0;
    const uint64_t bits = random();
    std::memcpy(&any, &bits, sizeof any);
    if (!std::isfinite(any)) any = 0;
    ASSERT_EQ(written(any), standard_text(any));
    const auto digits = static_cast<double>(random() >> (random() % 50 + 14));
    const double decimal = digits / std::pow(10, static_cast<double>(random() % 9));
    ASSERT_EQ(written(decimal), standard_text(decimal));
    ASSERT_EQ(written(-decimal), standard_text(-decimal));
    const double next = std::nextafter(decimal, 0);
    ASSERT_EQ(written(next), standard_text(next));
  }
}
