// Lines of files that grow, and become shorter meanwhile.
#include "recording/records/growing_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "tests/support/temp_folder.h"

class GrowingFile : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("records", "");
    open();
  }
  void open(line_position from = {}, lost_lines lost = lost_lines::compared) {
    file_ = std::make_unique<growing_file>(
        open_descriptor(::open(folder_.file("records").c_str(), O_RDONLY | O_CLOEXEC)), "records",
        from, lost);
  }
  void append(const std::string& text) const {
    std::ofstream(folder_.file("records"), std::ios::app) << text;
  }
  void cut(off_t size) const { ASSERT_EQ(truncate(folder_.file("records").c_str(), size), 0); }
  // The lines that are there by now, each with its number.
  std::string lines() {
    std::string all;
    for (record_line line; file_->next(line);)
      all += std::to_string(line.number) + ":" + std::string(line.text) + " ";
    return all;
  }

  temp_folder folder_;
  std::unique_ptr<growing_file> file_;
};

TEST_F(GrowingFile, LinesComeWhenTheirEndsAreThere) {
  EXPECT_EQ(lines(), "");
  append("one\ntw");
  EXPECT_EQ(lines(), "1:one ");
  append("o");
  EXPECT_EQ(lines(), "");
  EXPECT_TRUE(file_->is_inside_line());
  append("\n\nfour\n");
  EXPECT_EQ(lines(), "2:two 4:four ");
  append("five");
  EXPECT_EQ(lines(), "");
  record_line line;
  ASSERT_TRUE(file_->next_at_end(line));
  EXPECT_EQ(line.text, "five");
  EXPECT_FALSE(file_->take_cut());
}

TEST_F(GrowingFile, GoesOnWhereItWasLeft) {
  append("one\ntwo\nthr");
  EXPECT_EQ(lines(), "1:one 2:two ");
  const line_position position = file_->position();
  EXPECT_EQ(position.offset, 8U);
  EXPECT_EQ(position.lines, 2U);
  open(position);
  append("ee\n");
  EXPECT_EQ(lines(), "3:three ");
}

// As a batch is that fails on a full disk, and is written again when there is room.
TEST_F(GrowingFile, WhatComesAgainAsItWasIsNotHandedOutAgain) {
  append("one\ntwo\nthree\nfo");
  EXPECT_EQ(lines(), "1:one 2:two 3:three ");
  cut(4);
  EXPECT_EQ(lines(), "");
  EXPECT_TRUE(file_->take_cut());
  EXPECT_FALSE(file_->take_cut());
  append("two\nth");
  EXPECT_EQ(lines(), "");
  EXPECT_EQ(file_->position().offset, 8U);
  EXPECT_EQ(file_->position().lines, 2U);
  append("ree\nfour\n");
  EXPECT_EQ(lines(), "4:four ");
  EXPECT_FALSE(file_->take_cut());
}

TEST_F(GrowingFile, FromTheFirstOtherLineOnAllIsHandedOut) {
  append("one\ntwo\nthree\n");
  EXPECT_EQ(lines(), "1:one 2:two 3:three ");
  cut(4);
  append("two\nthen\nthree\n");
  EXPECT_EQ(lines(), "3:then 4:three ");
  cut(4);
  append("t\n");
  EXPECT_EQ(lines(), "2:t ");
}

TEST_F(GrowingFile, MayBecomeShorterSeveralTimes) {
  append("one\ntwo\nthree\nfour\n");
  EXPECT_EQ(lines(), "1:one 2:two 3:three 4:four ");
  cut(4);
  append("two\n");
  EXPECT_EQ(lines(), "");
  cut(4);
  EXPECT_EQ(lines(), "");
  append("two\nthree\nfo");
  EXPECT_EQ(lines(), "");
  cut(0);
  append("one\ntwo\nthree\nfour\nfive\n");
  EXPECT_EQ(lines(), "5:five ");
}

TEST_F(GrowingFile, OneThatGrewAgainMeanwhileIsSeenToBeAnother) {
  append("one\ntwo\n");
  EXPECT_EQ(lines(), "1:one 2:two ");
  cut(4);
  append("2\n3\n4\n5\n");
  EXPECT_EQ(lines(), "2:2 3:3 4:4 5:5 ");
  EXPECT_TRUE(file_->take_cut());
}

TEST_F(GrowingFile, OneThatWasEmptiedBeginsAnew) {
  append("one\ntwo\n");
  EXPECT_EQ(lines(), "1:one 2:two ");
  cut(0);
  EXPECT_EQ(lines(), "");
  append("three\n");
  EXPECT_EQ(lines(), "1:three ");
}

// Of a large one not all is known.
TEST_F(GrowingFile, ALargeOneThatWasEmptiedBeginsAnew) {
  const std::string line(1023, 'x');
  for (int i = 0; i < 5000; ++i) append(line + "\n");
  size_t count = 0;
  for (record_line one; file_->next(one);) ++count;
  EXPECT_EQ(count, 5000U);
  cut(4999 * 1024);
  append(line + "\nlast\n");
  EXPECT_EQ(lines(), "5001:last ");
  cut(0);
  append("one\n");
  EXPECT_EQ(lines(), "1:one ");
}

TEST_F(GrowingFile, LostLinesAreHandedOverToOthers) {
  open({}, lost_lines::handed_over);
  append("one\ntwo\nthree\nhal");
  EXPECT_EQ(lines(), "1:one 2:two 3:three ");
  EXPECT_EQ(file_->take_lost(), "");
  cut(4);
  EXPECT_EQ(lines(), "");
  EXPECT_EQ(file_->take_lost(), "two\nthree\n");
  append("two\nfour\n");
  EXPECT_EQ(lines(), "2:two 3:four ");
  EXPECT_EQ(file_->take_lost(), "");
}

TEST_F(GrowingFile, LongLinesAreGivenUpAsElsewhere) {
  append(std::string(record_size_limit + 10, 'x'));
  record_line line;
  ASSERT_TRUE(file_->next(line));
  EXPECT_TRUE(line.too_long);
  append("xx\ntwo\n");
  EXPECT_EQ(lines(), "2:two ");
}
