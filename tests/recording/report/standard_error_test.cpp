// Standard error of commands: one write for each message, and what becomes of those that it does
// not take.
#include "recording/report/standard_error.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <thread>

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

// --- Of a process that must not be held up ---

static const std::function<bool()> never = [] { return false; };
static const std::function<bool()> at_once = [] { return true; };

// What waits where it has no room, and is full.
static void fill_waiting(int descriptor) {
  fcntl(descriptor, F_SETFL, O_NONBLOCK);
  while (write(descriptor, ".", 1) == 1) {
  }
  fcntl(descriptor, F_SETFL, 0);
}

static std::string taken_of(int descriptor) {
  std::string all;
  std::array<char, 65536> bytes;
  for (pollfd there{descriptor, POLLIN, 0}; poll(&there, 1, 0) == 1;) {
    const ssize_t got = read(descriptor, bytes.data(), bytes.size());
    if (got <= 0) break;
    all.append(bytes.data(), static_cast<size_t>(got));
  }
  return all.substr(std::min(all.size(), all.find_first_not_of('.')));
}

static std::array<int, 2> new_pipe() {
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  return ends;
}

static std::array<int, 2> new_sockets() {
  std::array<int, 2> ends{};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  return ends;
}

// More than the system takes in one piece, to somebody who reads again.
static void expect_late(std::array<int, 2> ends, standard_error& log) {
  const std::string text = std::string(9999, 'x') + "\n";
  log << text << std::flush;
  EXPECT_EQ(taken_of(ends[0]), "");
  log.flush();
  EXPECT_EQ(taken_of(ends[0]), text + lack + "\n");
  for (const int end : ends) close(end);
}

TEST(UnwaitingStandardError, IsNotHeldUpByAFullPipe) {
  const auto ends = new_pipe();
  fill_waiting(ends[1]);
  standard_error log(ends[1], at_once);
  expect_late(ends, log);
}

TEST(UnwaitingStandardError, IsNotHeldUpByAFullSocket) {
  const auto ends = new_sockets();
  fill_waiting(ends[1]);
  standard_error log(ends[1], at_once);
  expect_late(ends, log);
}

// As where the pipe is another user's.
#ifndef KP_SANITIZED  // the sanitizer opens descriptors of its own
TEST(UnwaitingStandardError, IsNotHeldUpByAPipeThatCannotBeOpenedAgain) {
  const auto ends = new_pipe();
  fill_waiting(ends[1]);
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{0, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  standard_error log(ends[1], at_once);
  setrlimit(RLIMIT_NOFILE, &before);
  expect_late(ends, log);
}
#endif

TEST(UnwaitingStandardError, WaitsForAReaderWhoIsSlow) {
  const auto ends = new_pipe();
  fill_waiting(ends[1]);
  int asked = 0;
  standard_error log(ends[1], [&] {
    if (++asked == 2) {
      EXPECT_EQ(taken_of(ends[0]), "");
    }
    return false;
  });
  log << "a\n" << std::flush;
  EXPECT_EQ(taken_of(ends[0]), "a\n");
  EXPECT_EQ(asked, 2);
  for (const int end : ends) close(end);
}

TEST(UnwaitingStandardError, WaitsOnceForAReaderWhoHasStopped) {
  const auto ends = new_pipe();
  fill_waiting(ends[1]);
  int asked = 0;
  bool is_to_end = false;
  {
    standard_error log(ends[1], [&] {
      ++asked;
      return is_to_end;
    });
    log << "a\n" << std::flush;
    const int asked_first = asked;
    EXPECT_GT(asked_first, 1);
    for (int i = 0; i < 10; ++i) log << "b\n" << std::flush;
    EXPECT_EQ(asked, asked_first + 10);
    is_to_end = true;
    taken_of(ends[0]);
  }
  for (const int end : ends) close(end);
}

// Nothing that a run says at its end is lost to somebody who reads it page by page.
TEST(UnwaitingStandardError, WaitsForAllAtTheEnd) {
  const auto ends = new_pipe();
  const std::string text(size_t{1} << 20, 'x');
  std::string taken;
  std::thread reader([&] {
    while (taken.size() < text.size()) {
      pollfd there{ends[0], POLLIN, 0};
      poll(&there, 1, -1);
      taken += taken_of(ends[0]);
    }
  });
  {
    standard_error log(ends[1], never);
    log << text;
  }
  reader.join();
  EXPECT_EQ(taken, text);
  for (const int end : ends) close(end);
}
