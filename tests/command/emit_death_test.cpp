// kplog emit beside itself, killed, and on disks that fail: what is written and acknowledged.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>

#include "tests/command/emit_fixture.h"
#include "tests/support/counter_folder.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class EmitDeath : public testing::Test {
 protected:
  std::unique_ptr<running_command> start(const std::vector<std::string>& arguments) {
    return std::make_unique<running_command>(folder_.path(), emit_folder::words(arguments));
  }
  // The serials of the day's logs, in their order.
  std::vector<std::string> logs_of(const std::string& day) const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
      if (entry.path().filename().string().starts_with("shop." + day + "."))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

  emit_folder folder_;
};

static std::vector<std::string> lines_of(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// --- Several processes

// Texts of 100 characters and more, so that a mixture would show.
static std::string long_text(const std::string& name, int number) {
  return name + "-" + std::to_string(number) + "-" +
         std::string(static_cast<size_t>(100 + number % 50), name.front());
}

static std::string records_over_midnight(const std::string& name, int count) {
  std::string records;
  for (int i = 0; i < count; ++i) {
    const bool is_late = i >= count / 2;
    records += note_record(long_text(name, i),
                           is_late ? "2026-11-16T00:00:00+08:00" : "2026-11-15T23:59:59+08:00");
  }
  return records;
}

TEST_F(EmitDeath, FourProcessesShareLogsOverMidnightAndTheSizeLimit) {
  static constexpr int count = 2000;
  const std::string names = "abcd";
  std::vector<std::unique_ptr<running_command>> runs;
  for (const char name : names) {
    const std::string file = std::string("records.") + name;
    folder_.write(file, records_over_midnight(std::string(1, name), count));
    runs.push_back(start({"-q", "--to", "text:./shop,max-size=50K", "--count", "./shop", file}));
  }
  for (const auto& run : runs) {
    const command_end end = run->wait();
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.err, "");
  }
  std::map<std::string, int> seen;
  for (const std::string day : {"20261115", "20261116"}) {
    const std::vector<std::string> logs = logs_of(day);
    ASSERT_GT(logs.size(), 5u);
    for (size_t i = 0; i < logs.size(); ++i) {
      const std::string serial = std::to_string(i + 1);
      EXPECT_EQ(logs[i], "shop." + day + "." + std::string(4 - serial.size(), '0') + serial);
      const std::string log = folder_.text(logs[i]);
      EXPECT_LE(log.size(), 50u << 10);
      EXPECT_TRUE(log.ends_with('\n'));
      for (const std::string& line : lines_of(log)) ++seen[line];
    }
  }
  EXPECT_EQ(seen.size(), names.size() * count);
  for (const char name : names)
    for (int i = 0; i < count; ++i) {
      const std::string time =
          i >= count / 2 ? "2026-11-16T00:00:00+08:00" : "2026-11-15T23:59:59+08:00";
      EXPECT_EQ(seen[time + " 3 NOTE " + long_text(std::string(1, name), i)], 1) << name << i;
    }
  const std::string counts = folder_.text("shop.cnt");
  EXPECT_EQ(count_in(counts, 2026, 11, 15, 1003), 2 * count);
  EXPECT_EQ(count_in(counts, 2026, 11, 16, 1003), 2 * count);
  EXPECT_EQ(counts.size(), 64u);
}

// --- Sudden death

// Sends records until the command is dead; returns the number of the last one acknowledged.
class killed_run {
 public:
  killed_run(const std::string& folder, int number)
      : command_(folder,
                 emit_folder::words({"-q", "--ack", "--to", "text:./shop", "--to", "json:stored"})),
        name_("run " + std::to_string(number) + " record ") {}

  std::string text_of(int record) const { return name_ + std::to_string(record) + "."; }
  // Sends batches one by one, and kills when `records` were acknowledged and some bytes more sent.
  int kill_behind(int records, size_t bytes) {
    int sent = 0;
    int acknowledged = 0;
    while (acknowledged < records) {
      command_.send(note_record(text_of(++sent)));
      acknowledged = std::stoi(command_.out_line());
    }
    std::string more;
    for (int i = 0; i < 40; ++i) more += note_record(text_of(++sent));
    command_.send(std::string_view(more).substr(0, bytes));
    command_.signal(SIGKILL);
    for (const std::string& number : lines_of(command_.wait().out))
      acknowledged = std::stoi(number);
    return acknowledged;
  }

 private:
  running_command command_;
  std::string name_;
};

// How many lines hold the text.
static int count_of(const std::map<std::string, int>& texts, const std::string& text) {
  const auto found = texts.find(text);
  return found == texts.end() ? 0 : found->second;
}

static std::map<std::string, int> texts_between(const std::string& file, const std::string& before,
                                                const std::string& behind) {
  std::map<std::string, int> texts;
  for (const std::string& line : lines_of(file)) {
    const size_t begin = line.find(before);
    EXPECT_TRUE(begin != std::string::npos && line.ends_with(behind)) << line;
    if (begin != std::string::npos)
      ++texts[line.substr(begin + before.size(),
                          line.size() - behind.size() - begin - before.size())];
  }
  return texts;
}

class EmitSuddenDeath : public EmitDeath, public testing::WithParamInterface<int> {};

// What was acknowledged is there, once, and whole, and nothing is there twice.
TEST_P(EmitSuddenDeath, AcknowledgedRecordsAreThereOnce) {
  static constexpr int runs = 25;
  std::minstd_rand random(static_cast<unsigned>(GetParam()));
  std::vector<std::string> acknowledged;
  for (int i = 0; i < runs; ++i) {
    killed_run run(folder_.path(), i);
    const int last = run.kill_behind(static_cast<int>(random() % 4), random() % 4000);
    for (int record = 1; record <= last; ++record) acknowledged.push_back(run.text_of(record));
  }
  const auto end = folder_.emit_text("-q --to text:./shop --to json:stored", note_record("end"));
  EXPECT_EQ(end.status, 0) << end.err;
  const auto logged = texts_between(folder_.text("shop.20261115.0001"), " 3 NOTE ", "");
  const auto stored = texts_between(folder_.text("stored"), "\"message\":\"", "\"}");
  for (const std::string& text : acknowledged) {
    EXPECT_EQ(count_of(logged, text), 1) << text;
    EXPECT_EQ(count_of(stored, text), 1) << text;
  }
  for (const auto& texts : {logged, stored})
    for (const auto& [text, count] : texts) EXPECT_EQ(count, 1) << text;
}

INSTANTIATE_TEST_SUITE_P(Seeds, EmitSuddenDeath, testing::Range(1, 9));

TEST_F(EmitDeath, TornTailIsCutOffAndReported) {
  ASSERT_EQ(folder_.emit_text("-q --to text:./shop", note_record("whole")).status, 0);
  const std::string whole = folder_.text("shop.20261115.0001");
  folder_.write("shop.20261115.0001", whole + "2026-11-15T17:02:56+08:00 3 NO");
  const auto run = folder_.emit_text("--format json --to text:./shop", note_record("next"));
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, HasSubstr("\"code\":\"unfinished-line\""));
  EXPECT_EQ(folder_.text("shop.20261115.0001"), whole + "2026-11-15T17:02:56+08:00 3 NOTE next\n");
}

// --- Disks

TEST_F(EmitDeath, FullDiskLeavesWholeLinesAndWhatWasAcknowledged) {
  std::string records;
  for (int i = 1; i <= 20000; ++i) records += note_record("record " + std::to_string(i) + ".");
  folder_.write("input", records);
  const auto run = folder_.emit("--ack --to text:./shop < input", "ulimit -f 600; ");  // KiB a file
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, AllOf(HasSubstr("shop.20261115.0001: File too large\n"),
                             HasSubstr(" not written\n")));
  const auto numbers = lines_of(run.out);
  ASSERT_FALSE(numbers.empty());
  const auto lines = lines_of(folder_.text("shop.20261115.0001"));
  EXPECT_EQ(lines.size(), std::stoul(numbers.back()));
  for (size_t i = 0; i < lines.size(); ++i)
    ASSERT_EQ(lines[i], "2026-11-15T17:02:56+08:00 3 NOTE record " + std::to_string(i + 1) + ".");
}

TEST_F(EmitDeath, FullOutputIsReported) {
  const auto run = folder_.emit_text("-q --to - > /dev/full", note_record("a"));
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, HasSubstr("No space left on device"));
}

TEST_F(EmitDeath, LostFolderEndsTheRunAndSaysWhatWasNotWritten) {
  ASSERT_EQ(mkdir(folder_.path("logs").c_str(), 0700), 0);
  const auto run = start({"--to", "text:logs/shop", "--ack"});
  ASSERT_TRUE(run->send(note_record("a")));
  EXPECT_EQ(run->out_line(), "1");
  std::filesystem::remove_all(folder_.path("logs"));
  ASSERT_TRUE(run->send(note_record("b")));
  const command_end end = run->wait();
  EXPECT_EQ(end.status, 3);
  EXPECT_EQ(end.out, "");
  EXPECT_THAT(end.err, AllOf(StartsWith("kplog: cannot open the folder logs: "),
                             HasSubstr("2 records: 1 written, 0 rejected by the filter, 0 bad, 1 "
                                       "not written\n")));
}

TEST_F(EmitDeath, RunThatIsToWaitGoesOnWhenTheFolderIsBack) {
  ASSERT_EQ(mkdir(folder_.path("logs").c_str(), 0700), 0);
  const auto run = start({"--to", "text:logs/shop", "--ack", "--on-failure", "wait"});
  ASSERT_TRUE(run->send(note_record("a")));
  EXPECT_EQ(run->out_line(), "1");
  std::filesystem::rename(folder_.path("logs"), folder_.path("away"));
  ASSERT_TRUE(run->send(note_record("b")));
  EXPECT_EQ(run->err_line(),
            "kplog: cannot open the folder logs: No such file or directory; nothing is read until "
            "it can be written");
  std::filesystem::rename(folder_.path("away"), folder_.path("logs"));
  EXPECT_EQ(run->out_line(), "2");
  EXPECT_EQ(run->err_line(), "kplog: the outputs can be written again");
  EXPECT_EQ(run->wait().status, 0);
}

TEST_F(EmitDeath, ReaderOfMessagesThatLeftIsAnError) {
  folder_.write("input", note_record("a"));
  folder_.emit("-q --to - input 2> said; echo $? > status; } | { exec <&-; touch left; }",
               "{ until test -e left; do sleep 0.01; done; ");
  EXPECT_EQ(folder_.text("status"), "3\n");
  EXPECT_EQ(folder_.text("said"), "kplog: cannot write to standard output: Broken pipe\n");
}

TEST_F(EmitDeath, FolderThatIsNotThereIsReportedBeforeAnythingIsRead) {
  for (const char* sink : {"--to text:nowhere/shop", "--to json:nowhere/file",
                           "--to - --count nowhere/c", "--to - --on-error quarantine=nowhere/q"}) {
    const auto run = folder_.emit_text(sink, note_record("a"));
    EXPECT_EQ(run.status, 3) << sink;
    EXPECT_EQ(run.out, "") << sink;
    EXPECT_THAT(run.err, HasSubstr("nowhere")) << sink;
  }
}

// --- Memory

// AddressSanitizer keeps what was freed.
#ifndef KP_SANITIZED

// The records are never in the memory of the test, which a child begins with.
TEST_F(EmitDeath, MemoryDoesNotGrowWithTheInput) {
  std::vector<long> peaks;
  for (const int count : {10000, 300000}) {
    std::ofstream records(folder_.path("records"));
    for (int i = 0; i < count; ++i) records << note_record("short");
    records.close();
    const auto run = start({"-q", "--to", "text:./shop", "records"});
    const command_end end = run->wait();
    EXPECT_EQ(end.status, 0) << end.err;
    peaks.push_back(end.peak_kilobytes);
  }
  EXPECT_LT(peaks[1], peaks[0] + 2048) << peaks[0] << " KiB for the small input";
}

#endif

// --- Hostile bytes

// Records whose texts hold what must not reach a terminal, and lines that are no records at all.
static std::string hostile_records() {
  std::string records;
  for (const char* text :
       {"\\u001b]0;title\\u0007", "\\u001b[2J\\u001b[31m", "line\\u000aof\\u000dits own",
        "\\u0085next\\u2028line\\u2029paragraph", "\\u202eesrever\\u2066isolate\\u2069",
        "\\u009b31m\\u007f", "back\\\\slash and \\\"quote\\\"", "a\\u0009tab",
        "\xC2\x9B"
        "31m raw",
        "\xE2\x80\xAEraw", "\xEF\xBB\xBFmark", "\xF0\x9F\x98\x80"})
    records += note_record(text);
  for (int byte = 1; byte < 256; ++byte)
    if (byte != '\n') records += std::string("{\"event\":\"NO") + static_cast<char>(byte) + "\"}\n";
  return records + "\xC0\x80\xED\xA0\x80\xF5\n" + std::string("{\"event\":\"N\0\"}\n", 15);
}

static bool is_safe_text(const std::string& text) {
  for (size_t i = 0; i < text.size();) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 && byte != '\n' && byte != '\t') return false;
    if (byte == 0x7F) return false;
    ++i;
  }
  for (const char* unsafe : {"\xC2\x80", "\xC2\x9B", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9",
                             "\xE2\x80\xAE", "\xE2\x81\xA6", "\xFF", "\xC0", "\xF5"})
    if (text.find(unsafe) != std::string::npos) return false;
  return true;
}

TEST_F(EmitDeath, HostileBytesReachNoOutput) {
  const std::string records = hostile_records();
  for (const char* format : {"text", "json"}) {
    const auto run = folder_.emit_text(
        std::string("--to - --to text:./shop --on-error quarantine=bad --format ") + format,
        records);
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(is_safe_text(run.out)) << run.out;
    EXPECT_TRUE(is_safe_text(run.err)) << run.err;
    EXPECT_EQ(lines_of(run.out).size(), 12u);
  }
  const std::string log = folder_.text("shop.20261115.0001");
  EXPECT_TRUE(is_safe_text(log)) << log;
  EXPECT_EQ(lines_of(log).size(), 24u);
  // Bad lines are kept byte by byte.
  const std::string bad = records.substr(records.find("{\"event\":\"NO\x01"));
  EXPECT_EQ(folder_.text("bad"), bad + bad);
}

TEST_F(EmitDeath, HostileTextsComeBackFromTheStoredForm) {
  ASSERT_EQ(folder_.emit_text("-q --to json:stored", hostile_records()).status, 1);
  const auto again = folder_.emit("-q --to json:- stored");
  EXPECT_EQ(again.status, 0) << again.err;
  EXPECT_EQ(again.out, folder_.text("stored"));
}
