// What is written to descriptors that do not take all of it at once.
#include "recording/files/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>
#include <thread>

// More than a pipe holds.
static const std::string much(1 << 20, 'x');

TEST(WriteAll, WaitsForAPipeThatDoesNotBlock) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  ASSERT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
  std::string taken;
  std::thread reader([&] {
    std::array<char, 4096> buffer;
    for (ssize_t got = 0; (got = read(ends[0], buffer.data(), buffer.size())) > 0;)
      taken.append(buffer.data(), static_cast<size_t>(got));
  });
  std::string_view left = much;
  EXPECT_TRUE(write_all(ends[1], left));
  close(ends[1]);
  reader.join();
  close(ends[0]);
  EXPECT_EQ(left, "");
  EXPECT_EQ(taken, much);
}

TEST(WriteAll, LeavesWhatWasNotWritten) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  close(ends[0]);
  auto* const before = signal(SIGPIPE, SIG_IGN);
  std::string_view left = much;
  EXPECT_FALSE(write_all(ends[1], left));
  EXPECT_EQ(errno, EPIPE);
  signal(SIGPIPE, before);
  close(ends[1]);
  EXPECT_EQ(left, much);
}
