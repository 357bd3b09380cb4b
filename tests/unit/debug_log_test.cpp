#include "kp_LOG_debug_log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <thread>
#include <vector>

#include "tests/support/failing.h"
#include "tests/support/temp_folder.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

// The length of the prefix that this process and thread give a line.
static size_t prefix_length() {
  return strlen("2026/11/15 17:02:56(pid=)(tid=):") + std::to_string(getpid()).size() +
         std::to_string(static_cast<int>(pthread_self())).size();
}

TEST(DebugLogLevel, IsOffWhenTheProgramStarts) {
  EXPECT_EQ(GetDebugLogLevel(), 0U);
  EXPECT_EQ(debug_log_level, 0U);
}

TEST(DebugLogLevel, ZeroToNineAreTaken) {
  const settings_guard guard;
  for (int level = 0; level <= 9; ++level) {
    EnableDebugLog(level);
    EXPECT_EQ(GetDebugLogLevel(), static_cast<unsigned>(level));
  }
}

TEST(DebugLogLevel, OtherValuesLeaveItAsItWas) {
  const settings_guard guard;
  EnableDebugLog(4);
  for (const int level : {10, -1, 11, 255, 256, INT32_MAX, INT32_MIN}) {
    EnableDebugLog(level);
    EXPECT_EQ(GetDebugLogLevel(), 4U) << level;
  }
}

TEST(DebugLogLevel, ZeroSwitchesTheLogOff) {
  const debug_log_in_temp_folder log(3);
  EnableDebugLog(0);
  LogDebugMessage(1, "unseen\n");
  EXPECT_FALSE(fs::exists("zel_debug.log"));
}

TEST(DebugLogLevel, TheExportedVariableIsTheLevel) {
  const debug_log_in_temp_folder log(0);
  debug_log_level = 7;
  EXPECT_EQ(GetDebugLogLevel(), 7U);
  LogDebugMessage(7, "seen\n");
  EXPECT_THAT(log.lines(), ElementsAre("seen"));
}

TEST(DebugLogLine, WhileTheLogIsOffOnlyLevelNineIsWritten) {
  const debug_log_in_temp_folder log(0);
  for (unsigned level = 0; level <= 8; ++level) LogDebugMessage(level, "level %u\n", level);
  EXPECT_FALSE(fs::exists("zel_debug.log"));
  LogDebugMessage(9, "level 9\n");
  EXPECT_THAT(log.lines(), ElementsAre("level 9"));
}

TEST(DebugLogLine, LevelsUpToTheEnabledOneAndNineAreWritten) {
  const debug_log_in_temp_folder log(3);
  for (unsigned level = 0; level <= 11; ++level) LogDebugMessage(level, "level %u\n", level);
  EXPECT_THAT(log.lines(), ElementsAre("level 0", "level 1", "level 2", "level 3", "level 9"));
}

TEST(DebugLogLine, StartsWithLocalTimeProcessAndThread) {
  const environment_value zone("TZ", "XYZ-5:30");
  const debug_log_in_temp_folder log(1);
  const time_t before = time(nullptr);
  LogDebugMessage(1, "%s:%d Seek error!\n", "logging/logentrycounter", 226);
  const time_t after = time(nullptr);
  std::vector<std::string> possible;
  for (time_t moment = before; moment <= after; ++moment) {
    const time_t told = moment + 19800;
    struct tm fields;
    gmtime_r(&told, &fields);
    char when[20];
    strftime(when, sizeof when, "%Y/%m/%d %H:%M:%S", &fields);
    possible.push_back(when + std::string("(pid=") + std::to_string(getpid()) +
                       ")(tid=" + std::to_string(static_cast<int>(pthread_self())) +
                       "):logging/logentrycounter:226 Seek error!\n");
  }
  EXPECT_THAT(possible, testing::Contains(log.raw()));
}

TEST(DebugLogLine, WithoutANewlineTheNextLineRunsIntoIt) {
  const debug_log_in_temp_folder log(1);
  LogDebugMessage(1, "first");
  LogDebugMessage(1, "second\n");
  const std::regex joined(R"(\d{4}/\d\d/\d\d [\d:]{8}\(pid=\d+\)\(tid=-?\d+\):first)"
                          R"(\d{4}/\d\d/\d\d [\d:]{8}\(pid=\d+\)\(tid=-?\d+\):second\n)");
  EXPECT_TRUE(std::regex_match(log.raw(), joined)) << log.raw();
}

TEST(DebugLogLine, AnEmptyFormatGivesThePrefixAlone) {
  const debug_log_in_temp_folder log(1);
  const char* nothing = "";
  LogDebugMessage(1, "%s", nothing);
  EXPECT_EQ(log.raw().size(), prefix_length());
  EXPECT_EQ(log.raw().back(), ':');
}

TEST(DebugLogLine, EveryArgumentIsFormattedAsByPrintf) {
  const debug_log_in_temp_folder log(1);
  LogDebugMessage(1, "%d %u %s %c %.2f %% %5d|%-5d| %lld\n", -1, 4294967295U, "text", 'x', 2.5, 7,
                  7, -9223372036854775807LL);
  EXPECT_THAT(log.lines(),
              ElementsAre("-1 4294967295 text x 2.50 %     7|7    | -9223372036854775807"));
}

TEST(DebugLogLine, OfAnyLengthIsWrittenWhole) {
  const debug_log_in_temp_folder log(1);
  std::string expected;
  for (const size_t line : {1000U, 1022U, 1023U, 1024U, 1025U, 4096U, 100000U}) {
    const std::string text(line - prefix_length() - 1, '9');
    LogDebugMessage(1, "%s\n", text.c_str());
    expected += text + "\n";
  }
  std::string found;
  for (const std::string& line : log.lines()) found += line + "\n";
  EXPECT_EQ(found, expected);
}

TEST(DebugLogLine, TooLongForTheStackIsCutWhenThereIsNoMemory) {
  const debug_log_in_temp_folder log(1);
  const std::string text(5000, 'x');
  {
    const failing_new fault(1, from_then_on);
    LogDebugMessage(1, "%s\n", text.c_str());
    EXPECT_TRUE(fault.met());
  }
  EXPECT_EQ(log.raw().size(), 1023U);
  EXPECT_EQ(log.raw().substr(prefix_length()), std::string(1023 - prefix_length(), 'x'));
}

// No wide character beyond ASCII can be written in the locale "C".
TEST(DebugLogLine, WhoseFormatFailsMidwayHasWhatWasFormattedBefore) {
  const debug_log_in_temp_folder log(1);
  for (const size_t length : {0U, 3U, 1000U, 1023U, 1024U, 1025U, 5000U, 100000U}) {
    const std::string text(length, 'x');
    const size_t before = log.raw().size();
    errno = 77;
    LogDebugMessage(1, "%s|%ls|after\n", text.c_str(), L"\u6F22");
    EXPECT_EQ(errno, 77);
    const bool is_whole = log.raw().substr(before + prefix_length()) == text + "|";
    EXPECT_TRUE(is_whole) << length;
  }
}

TEST(DebugLogLine, OfUsualLengthNeedsNoMemory) {
  const debug_log_in_temp_folder log(1);
  {
    const failing_new fault(1, from_then_on);
    LogDebugMessage(1, "%s:%d some text\n", "logging/x", 1);
    EXPECT_FALSE(fault.met());
  }
  EXPECT_THAT(log.lines(), ElementsAre("logging/x:N some text"));
}

TEST(DebugLogLine, KeepsErrno) {
  const debug_log_in_temp_folder log(1);
  errno = 77;
  LogDebugMessage(2, "filtered out\n");
  EXPECT_EQ(errno, 77);
  LogDebugMessage(1, "written\n");
  EXPECT_EQ(errno, 77);
  fs::remove("zel_debug.log");
  fs::create_directory("zel_debug.log");
  LogDebugMessage(1, "lost\n");
  EXPECT_EQ(errno, 77);
}

TEST(DebugLogLine, OfAForkedProcessCarriesItsOwnProcessId) {
  const debug_log_in_temp_folder log(1);
  LogDebugMessage(1, "parent\n");
  const pid_t child = fork();
  if (child == 0) {
    LogDebugMessage(1, "child\n");
    _exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_NE(log.raw().find("(pid=" + std::to_string(child) + ")"), std::string::npos);
  EXPECT_THAT(log.lines(), ElementsAre("parent", "child"));
}

TEST(DebugLogFile, IsAppendedToAndNeverHeldOpen) {
  const debug_log_in_temp_folder log(1);
  log.folder().write("zel_debug.log", "what was there\n");
  const size_t before = open_descriptors();
  LogDebugMessage(1, "one\n");
  LogDebugMessage(1, "two\n");
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_THAT(log.lines(), ElementsAre("what was there", "one", "two"));
}

TEST(DebugLogFile, IsMadeAgainAfterItWasDeleted) {
  const debug_log_in_temp_folder log(1);
  LogDebugMessage(1, "one\n");
  fs::remove("zel_debug.log");
  LogDebugMessage(1, "two\n");
  EXPECT_THAT(log.lines(), ElementsAre("two"));
}

TEST(DebugLogFile, IsTheOneOfTheWorkingFolderOfTheMoment) {
  const debug_log_in_temp_folder log(1);
  const temp_folder other;
  LogDebugMessage(1, "here\n");
  {
    const working_folder there(other.path());
    LogDebugMessage(1, "there\n");
  }
  EXPECT_THAT(log.lines(), ElementsAre("here"));
  EXPECT_NE(read_whole_file(other.file("zel_debug.log")).find("there"), std::string::npos);
}

TEST(DebugLogFile, AFolderInItsPlaceLosesTheLine) {
  const debug_log_in_temp_folder log(1);
  fs::create_directory("zel_debug.log");
  const size_t before = open_descriptors();
  LogDebugMessage(9, "lost\n");
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_TRUE(fs::is_empty("zel_debug.log"));
}

TEST(DebugLogFile, APipeInItsPlaceNeitherBlocksNorGetsTheLine) {
  const debug_log_in_temp_folder log(1);
  ASSERT_EQ(mkfifo("zel_debug.log", 0600), 0);
  const size_t before = open_descriptors();
  LogDebugMessage(9, "lost\n");
  EXPECT_EQ(open_descriptors(), before);
}

// As in a container whose zel_debug.log is a link to standard error.
TEST(DebugLogFile, ALinkToATerminalIsFollowed) {
  const debug_log_in_temp_folder log(1);
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  ASSERT_GE(terminal, 0);
  ASSERT_EQ(grantpt(terminal), 0);
  ASSERT_EQ(unlockpt(terminal), 0);
  const int standard_error = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(standard_error, 0);
  fs::create_symlink("/proc/self/fd/" + std::to_string(standard_error), "zel_debug.log");
  const size_t before = open_descriptors();
  LogDebugMessage(1, "shown\n");
  EXPECT_EQ(open_descriptors(), before);
  std::string shown(200, '\0');
  shown.resize(static_cast<size_t>(std::max<ssize_t>(read(terminal, shown.data(), 200), 0)));
  EXPECT_EQ(shown.substr(std::min(shown.size(), prefix_length())), "shown\r\n");
  close(standard_error);
  close(terminal);
}

TEST(DebugLogFile, ALinkToAPipeNeitherBlocksNorGetsTheLine) {
  const debug_log_in_temp_folder log(1);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  fs::create_symlink("/proc/self/fd/" + std::to_string(ends[1]), "zel_debug.log");
  LogDebugMessage(9, "lost\n");
  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), -1);
  EXPECT_EQ(errno, EAGAIN);
  close(ends[0]);
  close(ends[1]);
}

TEST(DebugLogFile, AWorkingFolderThatIsGoneLosesTheLine) {
  const debug_log_in_temp_folder log(1);
  const temp_folder gone;
  const working_folder there(gone.path());
  fs::remove_all(gone.path());
  LogDebugMessage(9, "lost\n");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DebugLogFile, NoDescriptorLeftLosesTheLine) {
  const debug_log_in_temp_folder log(1);
  struct rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const struct rlimit none = {0, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  LogDebugMessage(9, "lost\n");
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  LogDebugMessage(9, "written\n");
  EXPECT_THAT(log.lines(), ElementsAre("written"));
}

TEST(DebugLogFile, LinesOfManyThreadsStayWhole) {
  const debug_log_in_temp_folder log(1);
  constexpr int threads = 8;
  constexpr int lines_each = 300;
  std::vector<std::thread> writers;
  for (int t = 0; t < threads; ++t)
    writers.emplace_back([t] {
      const std::string text(static_cast<size_t>(20 + 200 * t), static_cast<char>('a' + t));
      for (int i = 0; i < lines_each; ++i) LogDebugMessage(1, "%d %s\n", t, text.c_str());
    });
  for (std::thread& writer : writers) writer.join();

  std::vector<int> seen(threads);
  for (const std::string& line : log.lines()) {
    const auto t = static_cast<size_t>(line.at(0) - '0');
    ASSERT_LT(t, seen.size());
    ASSERT_EQ(line,
              std::to_string(t) + " " + std::string(20 + 200 * t, static_cast<char>('a' + t)));
    ++seen[t];
  }
  EXPECT_THAT(seen, testing::Each(lines_each));
}

#ifdef KP_FAULTS

TEST(DebugLogFile, ThatCannotBeWrittenToLosesTheLineQuietly) {
  const debug_log_in_temp_folder log(1);
  {
    const failing full(kp_fault_call::write, 1, ENOSPC);
    errno = 5;
    LogDebugMessage(1, "lost\n");
    EXPECT_EQ(errno, 5);
  }
  LogDebugMessage(1, "written\n");
  EXPECT_THAT(log.lines(), ElementsAre("written"));
}

TEST(DebugLogFile, WhoseKindCannotBeToldLosesTheLine) {
  const debug_log_in_temp_folder log(1);
  const size_t before = open_descriptors();
  {
    const failing unknown(kp_fault_call::fstat, 1, EIO);
    LogDebugMessage(1, "lost\n");
  }
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_EQ(log.raw(), "");
}

TEST(DebugLogLine, IsWrittenWithOneCall) {
  const debug_log_in_temp_folder log(1);
  const failing watch(kp_fault_call::write, 0, 0);
  LogDebugMessage(1, "short\n");
  LogDebugMessage(1, "%s\n", std::string(9000, 'x').c_str());
  EXPECT_EQ(watch.calls_seen(), 2U);
}

TEST(DebugLogLine, ThatIsFilteredOutTakesNoTimeAndTouchesNoFile) {
  const debug_log_in_temp_folder log(3);
  const failing times(kp_fault_call::localtime_r, 0, 0);
  const failing files(kp_fault_call::fstat, 0, 0);
  LogDebugMessage(4, "unseen\n");
  EnableDebugLog(0);
  for (unsigned level = 1; level <= 8; ++level) LogDebugMessage(level, "unseen\n");
  EXPECT_EQ(times.calls_seen(), 0U);
  EXPECT_EQ(files.calls_seen(), 0U);
  LogDebugMessage(9, "seen\n");
  EXPECT_EQ(times.calls_seen(), 1U);
  EXPECT_EQ(files.calls_seen(), 1U);
}

TEST(DebugLogLine, WithoutALocalTimeHasAnEmptyTime) {
  const debug_log_in_temp_folder log(1);
  const std::string expected = "(pid=" + std::to_string(getpid()) +
                               ")(tid=" + std::to_string(static_cast<int>(pthread_self())) +
                               "):no time\n";
  {
    const failing no_time(kp_fault_call::localtime_r, 1, EOVERFLOW);
    LogDebugMessage(1, "no time\n");
  }
  {
    const failing no_format(kp_fault_call::strftime, 1, 0);
    LogDebugMessage(1, "no time\n");
  }
  EXPECT_EQ(log.raw(), expected + expected);
}

#endif

TEST(Version, IsOneOneOne) {
  EXPECT_STREQ(GetZELVersion(), "1.1.1.0000");
}
