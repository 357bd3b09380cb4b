#include "recording/text/size.h"

#include <gtest/gtest.h>

TEST(Size, IsANumberAndMayHaveAUnit) {
  EXPECT_EQ(size_of("1"), 1u);
  EXPECT_EQ(size_of("2K"), 2048u);
  EXPECT_EQ(size_of("64M"), 67108864u);
  EXPECT_EQ(size_of("10G"), 10737418240u);
  EXPECT_EQ(size_of("9223372036854775807"), 9223372036854775807u);
}

TEST(Size, AnythingElseIsNone) {
  for (const char* text : {"", "0", "0K", "K", "-1", "+1", "1k", "1KB", "1 K", "1.5M", "0x10",
                           "9223372036854775808", "8589934592G"})
    EXPECT_FALSE(size_of(text)) << text;
}
