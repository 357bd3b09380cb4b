// Sinks of several processes, and of processes that are killed.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <zstd.h>

#include <array>
#include <csignal>
#include <map>
#include <random>
#include <sstream>

#include "tests/recording/sinks/sink_entries.h"

using testing::ElementsAre;
namespace fs = std::filesystem;

static constexpr int writers = 4;
static constexpr int lines_per_writer = 3000;
static constexpr size_t log_size = 4096;

// Runs `work` in a process of its own, which ends without the destructors of the tests.
template <class F>
static pid_t fork_for(F work) {
  const pid_t process = fork();
  if (process != 0) return process;
  try {
    work();
  } catch (const std::exception& error) {
    fprintf(stderr, "%s\n", error.what());
    _exit(1);
  }
  _exit(0);
}

static int status_of(pid_t process) {
  int status = 0;
  return waitpid(process, &status, 0) == process ? status : -1;
}

static std::string message_of(int writer, int number, size_t length) {
  return std::to_string(writer) + ":" + std::to_string(number) + " " + std::string(length, 'x');
}

// Half of the lines are before midnight.
static void write_lines(const std::string& description, const sink_entries& entries, int writer) {
  std::mt19937 random(static_cast<unsigned>(writer));
  const auto sink = make_record_sink(description, {.set_version = "2.0", .code_page = ""});
  for (int i = 0; i < lines_per_writer; ++i) {
    const bool is_late = i >= lines_per_writer / 2;
    entries.add(*sink, message_of(writer, i, random() % 200),
                is_late ? "2026-11-16T00:00:00+08:00" : "2026-11-15T23:59:59+08:00");
    if (random() % 20 == 0) sink->write(false);
    sink->keep_up();
  }
  sink->write(false);
  sink->hurry_up();
  while (sink->keep_up().count() == 0) {
  }
}

// Which lines of whom the logs hold, in the order of their names.
static std::map<int, std::vector<int>> numbers_by_writer(const std::string& folder) {
  std::map<int, std::vector<int>> numbers;
  for (const std::string& name : files_in(folder))
    for (const std::string& line : lines_of(folder + "/" + name)) {
      int writer = 0, number = 0, end = 0;
      // A line that is mixed with another does not read as one.
      const std::string message = line.substr(std::min(line_start.size(), line.size()));
      const int read = std::sscanf(message.c_str(), "%d:%d %n", &writer, &number, &end);
      const bool is_whole = read == 2 && message.find_first_not_of('x', static_cast<size_t>(end)) ==
                                             std::string::npos;
      EXPECT_TRUE(is_whole && line.substr(0, 4) == "2026") << name << ": " << line;
      numbers[writer].push_back(number);
    }
  return numbers;
}

static std::vector<int> one_to(int count) {
  std::vector<int> numbers(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) numbers[static_cast<size_t>(i)] = i;
  return numbers;
}

// The serials of a day are 1, 2, 3, ...
static void expect_no_gaps(const std::vector<std::string>& names, const std::string& day) {
  int serial = 0;
  for (const std::string& name : names) {
    if (name.substr(4, 8) != day) continue;
    EXPECT_EQ(std::stoi(name.substr(13)), ++serial) << name;
  }
  EXPECT_GT(serial, 10);
}

TEST(RecordSinkProcesses, FourWriteOverMidnightAndManyLogsAndNoLineIsLostMixedOrDoubled) {
  const temp_folder folder;
  const sink_entries entries;
  const std::string description =
      "text:" + folder.file("app") + ",max-size=" + std::to_string(log_size);
  std::array<pid_t, writers> processes{};
  for (int i = 0; i < writers; ++i)
    processes[static_cast<size_t>(i)] = fork_for([&] { write_lines(description, entries, i); });
  for (const pid_t process : processes) EXPECT_EQ(status_of(process), 0);

  const std::map<int, std::vector<int>> numbers = numbers_by_writer(folder.path());
  ASSERT_EQ(numbers.size(), size_t{writers});
  for (const auto& [writer, found] : numbers) EXPECT_EQ(found, one_to(lines_per_writer)) << writer;
  const std::vector<std::string> names = files_in(folder.path());
  expect_no_gaps(names, "20261115");
  expect_no_gaps(names, "20261116");
  for (const std::string& name : names) EXPECT_LE(fs::file_size(folder.file(name)), log_size);
}

TEST(RecordSinkProcesses, FourAppendToOneJsonFile) {
  const temp_folder folder;
  const sink_entries entries;
  std::array<pid_t, writers> processes{};
  for (int i = 0; i < writers; ++i)
    processes[static_cast<size_t>(i)] =
        fork_for([&] { write_lines("json:" + folder.file("a.json"), entries, i); });
  for (const pid_t process : processes) EXPECT_EQ(status_of(process), 0);

  std::vector<std::string> lines = lines_of(folder.file("a.json"));
  EXPECT_EQ(lines.size(), size_t{writers} * lines_per_writer);
  for (const std::string& line : lines) {
    EXPECT_EQ(line.substr(0, 11), "{\"version\":");
    EXPECT_EQ(line.find("{\"version\":", 1), std::string::npos);
    EXPECT_EQ(line.back(), '}');
  }
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ(std::adjacent_find(lines.begin(), lines.end()), lines.end());
}

// Of the lines of a journal's segments, compressed ones too.
static std::map<int, std::vector<int>> numbers_in_journal(const std::string& folder) {
  std::map<int, std::vector<int>> numbers;
  std::map<std::string, std::string> segments;  // in their order
  for (const std::string& name : files_in(folder)) {
    const std::string bytes = read_whole_file(folder + "/" + name);
    if (name.ends_with(".jsonl")) segments[name] = bytes;
    if (!name.ends_with(".zst")) continue;
    std::string lines(ZSTD_getFrameContentSize(bytes.data(), bytes.size()), '\0');
    EXPECT_EQ(ZSTD_decompress(lines.data(), lines.size(), bytes.data(), bytes.size()),
              lines.size());
    EXPECT_TRUE(segments.try_emplace(name.substr(0, name.size() - 4), lines).second) << name;
  }
  for (const auto& [name, bytes] : segments) {
    std::istringstream lines(bytes);
    for (std::string line; std::getline(lines, line);) {
      int writer = 0, number = 0;
      const size_t at = line.find("\"message\":\"");
      const bool is_whole = line.starts_with("{\"version\":") && line.ends_with("\"}") &&
                            line.find("{\"version\":", 1) == std::string::npos &&
                            std::sscanf(line.c_str() + at + 11, "%d:%d", &writer, &number) == 2;
      EXPECT_TRUE(is_whole) << name << ": " << line;
      numbers[writer].push_back(number);
    }
  }
  return numbers;
}

// Each of them compresses, too.
TEST(RecordSinkProcesses, FourKeepOneJournal) {
  const temp_folder folder;
  const sink_entries entries;
  std::array<pid_t, writers> processes{};
  for (int i = 0; i < writers; ++i)
    processes[static_cast<size_t>(i)] = fork_for([&] {
      write_lines("journal:" + folder.file("app") + ",max-size=20K,compress=zstd", entries, i);
    });
  for (const pid_t process : processes) EXPECT_EQ(status_of(process), 0);

  const std::map<int, std::vector<int>> numbers = numbers_in_journal(folder.path());
  ASSERT_EQ(numbers.size(), size_t{writers});
  for (const auto& [writer, found] : numbers) EXPECT_EQ(found, one_to(lines_per_writer)) << writer;
  size_t plain = 0;
  for (const std::string& name : files_in(folder.path())) {
    if (name.ends_with(".jsonl")) ++plain;
    EXPECT_FALSE(name.ends_with(".part")) << name;
  }
  EXPECT_LE(plain, 2 + size_t{writers});  // those that another was at, when it looked last
}

// --- Killed in the middle ---

// A writer of batches of long lines over several logs, which says in a pipe what it has written.
class doomed_writer {
 public:
  doomed_writer(const std::string& description, const sink_entries& entries, int first) {
    EXPECT_EQ(pipe(ends_.data()), 0);
    process_ = fork_for([&] {
      const auto sink = make_record_sink(description, {.set_version = "2.0", .code_page = ""});
      for (int i = first;; ++i) {
        entries.add(*sink, message_of(0, i, 30000));
        if (i % 8 != 7) continue;
        sink->write(false);
        if (::write(ends_[1], &i, sizeof i) != sizeof i) _exit(1);
      }
    });
    close(ends_[1]);
  }

  // Waits for that many batches and a moment more, kills the writer, and returns the last line that
  // it has said is written; -1 when it said nothing.
  int kill_after(unsigned long batches, unsigned long microseconds) {
    int last = -1;
    for (unsigned long i = 0; i < batches; ++i) EXPECT_EQ(read(ends_[0], &last, sizeof last), 4);
    if (microseconds > 0) usleep(static_cast<useconds_t>(microseconds));
    kill(process_, SIGKILL);
    EXPECT_EQ(status_of(process_), SIGKILL);
    while (read(ends_[0], &last, sizeof last) == sizeof last) {
    }
    close(ends_[0]);
    return last;
  }

 private:
  std::array<int, 2> ends_{};
  pid_t process_ = -1;
};

TEST(RecordSinkProcesses, WhatWasWrittenIsThereWholeAndOnceAfterAKill) {
  const temp_folder folder;
  const sink_entries entries;
  std::minstd_rand random(5);
  const std::string description = "text:" + folder.file("app") + ",max-size=100K";
  std::vector<int> written;
  int next = 0;
  for (int round = 0; round < 40; ++round) {
    const int last =
        doomed_writer(description, entries, next).kill_after(random() % 3, random() % 2000);
    for (int i = next; i <= last; ++i) written.push_back(i);
    // Lines of the batch in which it died may be there; numbers of the next round differ from them.
    next = std::max(last, next) + 1000 - next % 1000;
    next -= next % 8;
  }
  testing::internal::CaptureStderr();
  const auto sink = make_record_sink(description, {.set_version = "2.0", .code_page = ""});
  testing::internal::GetCapturedStderr();

  const std::vector<int> found = numbers_by_writer(folder.path())[0];
  EXPECT_TRUE(std::is_sorted(found.begin(), found.end(), std::less_equal<>()));
  EXPECT_TRUE(std::includes(found.begin(), found.end(), written.begin(), written.end()));
  EXPECT_GT(written.size(), 100U);
  // A file that was made and not written to is whole.
  for (const std::string& name : files_in(folder.path())) {
    const std::string lines = read_whole_file(folder.file(name));
    EXPECT_TRUE(lines.empty() || lines.back() == '\n') << name;
  }
}
