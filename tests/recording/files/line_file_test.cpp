// A file of lines that has a size which it may have at most.
#include <gtest/gtest.h>

#include "recording/files/shared_file.h"
#include "tests/support/temp_folder.h"

class LineFileSize : public testing::Test {
 protected:
  // Appends the lines; how many were left out.
  size_t append(line_file& file, std::string lines) {
    file.append(lines, false);
    EXPECT_EQ(lines, "");
    return file.left_out();
  }
  std::string text() const { return read_whole_file(folder_.file("bad")); }

  temp_folder folder_;
};

TEST_F(LineFileSize, TakesLinesUpToItsSize) {
  for (const size_t size : {8u, 9u, 10u}) {
    folder_.write("bad", "");
    line_file file(folder_.file("bad"), {}, size);
    EXPECT_EQ(append(file, "one\n"), 0u);
    EXPECT_EQ(append(file, "four\n"), size < 9 ? 1u : 0u);
    EXPECT_EQ(text(), size < 9 ? "one\n" : "one\nfour\n");
  }
}

TEST_F(LineFileSize, TakesThoseOfTheLinesThatFit) {
  line_file file(folder_.file("bad"), {}, 10);
  EXPECT_EQ(append(file, "a\nbb\nccc\ndddd\ne\n"), 2u);
  EXPECT_EQ(text(), "a\nbb\nccc\n");
  EXPECT_EQ(append(file, ""), 0u);
  EXPECT_EQ(append(file, "\n"), 0u);
  EXPECT_EQ(append(file, "\n\n"), 2u);
  EXPECT_EQ(text(), "a\nbb\nccc\n\n");
}

TEST_F(LineFileSize, LeavesALongLineOut) {
  line_file file(folder_.file("bad"), {}, 3);
  EXPECT_EQ(append(file, "long\n"), 1u);
  EXPECT_EQ(append(file, "s\n"), 0u);
  EXPECT_EQ(text(), "s\n");
}

TEST_F(LineFileSize, GoesOnWhenItWasRenamed) {
  line_file file(folder_.file("bad"), {}, 4);
  EXPECT_EQ(append(file, "one\n"), 0u);
  EXPECT_EQ(append(file, "two\n"), 1u);
  ASSERT_EQ(rename(folder_.file("bad").c_str(), folder_.file("bad.1").c_str()), 0);
  EXPECT_EQ(append(file, "six\n"), 0u);
  EXPECT_EQ(text(), "six\n");
}

TEST_F(LineFileSize, IsLeftAsItIsWhereItIsLarger) {
  folder_.write("bad", "much more than that\n");
  line_file file(folder_.file("bad"), {}, 4);
  EXPECT_EQ(append(file, "a\n"), 1u);
  EXPECT_EQ(text(), "much more than that\n");
}
