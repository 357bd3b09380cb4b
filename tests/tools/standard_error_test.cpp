// Standard error of commands: one write for each message, and what becomes of those that it does
// not take.
#include "tools/standard_error.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <string>

// A pipe that refuses what it has no room for.
class small_pipe {
 public:
  small_pipe() {
    EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK), 0);
    EXPECT_EQ(fcntl(ends_[1], F_SETPIPE_SZ, 4096), 4096);
  }
  ~small_pipe() {
    for (const int end : ends_) close(end);
  }
  small_pipe(const small_pipe&) = delete;
  small_pipe& operator=(const small_pipe&) = delete;

  int writing() const { return ends_[1]; }
  void fill() const { EXPECT_EQ(write(ends_[1], std::string(4096, '.').data(), 4096), 4096); }
  std::string taken() const {
    std::array<char, 8192> bytes;
    const ssize_t got = read(ends_[0], bytes.data(), bytes.size());
    return {bytes.data(), got > 0 ? static_cast<size_t>(got) : 0};
  }

 private:
  std::array<int, 2> ends_{};
};

static constexpr const char* lack =
    "kplog: cannot write to standard error: Resource temporarily unavailable: what stands above "
    "this line came late";

TEST(StandardError, WritesWhatIsFlushedAtOnce) {
  const small_pipe pipe;
  standard_error log(pipe.writing());
  log << "a " << 1;
  log.put('\n');
  EXPECT_EQ(pipe.taken(), "");
  log.flush();
  EXPECT_EQ(pipe.taken(), "a 1\n");
}

TEST(StandardError, TriesAgainAndTellsTheLackOnce) {
  const small_pipe pipe;
  standard_error log(pipe.writing());
  pipe.fill();
  log << "a\n" << std::flush << "b\n" << std::flush;
  EXPECT_TRUE(log.good());
  pipe.taken();
  log << "c\n" << std::flush;
  EXPECT_EQ(pipe.taken(), std::string("a\nb\nc\n") + lack + "\n");
  log << "d\n" << std::flush;
  EXPECT_EQ(pipe.taken(), "d\n");
}

TEST(StandardError, KeepsWhatCameFirstAndCountsTheRest) {
  const small_pipe pipe;
  standard_error log(pipe.writing());
  pipe.fill();
  const std::string line = std::string(1023, 'x') + "\n";
  for (int i = 0; i < 70; ++i) log << line << std::flush;
  std::string taken;
  for (pipe.taken(); taken.find("kplog: ") == std::string::npos && log.good(); log.flush()) {
    const std::string more = pipe.taken();
    taken += more;
  }
  std::string kept;
  for (int i = 0; i < 64; ++i) kept += line;
  EXPECT_EQ(taken + pipe.taken(), kept + lack + ", and 6 lines did not come\n");
}

TEST(StandardError, TellsTheLackInTheFormOfTheMessages) {
  const small_pipe pipe;
  standard_error log(pipe.writing());
  pipe.fill();
  log << "{\"file\":\"kplog\"}\n" << std::flush;
  pipe.taken();
  log.flush();
  EXPECT_EQ(pipe.taken(),
            "{\"file\":\"kplog\"}\n"
            "{\"file\":\"kplog\",\"severity\":\"error\",\"code\":\"unwritable\","
            "\"text\":\"" +
                std::string(lack).substr(7) + "\",\"notes\":[]}\n");
}

TEST(StandardError, StaysGoodWhereNothingIsEverWritten) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  {
    standard_error log(full);
    log << "a\n" << std::flush;
    EXPECT_TRUE(log.good());
  }
  close(full);
}
